// The ABI client: a program compiled against interface.h (not the library's
// headers) and linked with the built libkt and libktcore. It calls every
// virtual slot through the original layout, with results that tell the slots
// apart, reads fields at their fixed offsets after library calls, destroys R
// objects through both bases and catches library-thrown exceptions by type.
// Each check runs in a child process of its own, so that a crash (the usual
// symptom of a slot mismatch) fails that check only.
#include <arpa/inet.h>
#include <malloc.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "interface.h"

namespace {

using KT::UInt8;

// Ends the check's process with a failure report.
void require(bool condition, const char* what) {
    if (condition) return;
    std::printf("    not so: %s\n", what);
    std::fflush(stdout);
    _exit(1);
}

// Hides where a pointer came from, so that the compiler calls through the
// table slot instead of the function it could otherwise see.
template <class T>
T* opaque(T* pointer) {
    asm volatile("" : "+r"(pointer));
    return pointer;
}

// The value of type T that the library left at `offset` in `object`.
template <class T>
T at(const void* object, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(object) + offset, sizeof value);
    return value;
}

// Offsets fixed by the interface (x86-64: table pointer first, then fields).
constexpr std::size_t kData = 8, kCapacity = 16, kLength = 20, kOwner = 24, kCursor = 32;

bool holds(const KT::CBuffer* buffer, const char* bytes, int count) {
    return at<int>(buffer, kLength) == count &&
           std::memcmp(at<UInt8*>(buffer, kData), bytes, count) == 0;
}

// A buffer holding `bytes` (the original interface has no copying buffer, so
// it is built in place).
struct Source : KT::CBuffer {
    explicit Source(const char* bytes) : CBuffer(0) {
        append(int(std::strlen(bytes)), reinterpret_cast<const UInt8*>(bytes));
    }
};

// ---------------------------------------------------------------------------
// The buffer family: every slot of every class, each class made through the
// library's constructors (or inline ones that use its tables).

struct Kind {
    const char* name;
    KT::CBuffer* (*make)();
    int correction;                                         // also the terminator test
    ktbase::object_refcount* (*countBase)(KT::CBuffer*);    // R classes only
    KT::CData* (*stream)(KT::CBuffer*);                     // CData and RData only
};

// A string starts as "" with its length cut to 0, an empty target.
template <class S>
KT::CBuffer* emptyString() {
    S* text = new S("");
    text->length = 0;
    return text;
}

const Kind kKinds[] = {
    {"CBuffer", [] { return new KT::CBuffer(0); }, 0, nullptr, nullptr},
    {"CString", emptyString<KT::CString>, -1, nullptr, nullptr},
    {"CData", [] { return static_cast<KT::CBuffer*>(new KT::CData(0)); }, 0, nullptr,
     [](KT::CBuffer* b) { return static_cast<KT::CData*>(b); }},
    {"RBuffer", [] { return static_cast<KT::CBuffer*>(new KT::RBuffer(0)); }, 0,
     [](KT::CBuffer* b) -> ktbase::object_refcount* { return static_cast<KT::RBuffer*>(b); },
     nullptr},
    {"RString", emptyString<KT::RString>, -1,
     [](KT::CBuffer* b) -> ktbase::object_refcount* { return static_cast<KT::RString*>(b); },
     nullptr},
    {"RData", [] { return static_cast<KT::CBuffer*>(new KT::RData(0)); }, 0,
     [](KT::CBuffer* b) -> ktbase::object_refcount* { return static_cast<KT::RData*>(b); },
     [](KT::CBuffer* b) { return static_cast<KT::CData*>(static_cast<KT::RData*>(b)); }},
};

// A codec slot: the bytes it must leave, plus a terminator for strings.
void expectCodec(const Kind& kind, void (KT::CBuffer::*slot)(const KT::CBuffer&, int),
                 const char* input, const char* output) {
    KT::CBuffer* target = opaque(kind.make());
    (target->*slot)(Source(input), 0);
    int count = int(std::strlen(output));
    require(holds(target, output, count + (kind.correction ? 1 : 0)), "the codec's output");
}

// A buffer of `kind` that held "xyz" until its slot `empty` ran.
KT::CBuffer* emptied(const Kind& kind, void (KT::CBuffer::*empty)()) {
    KT::CBuffer* buffer = opaque(kind.make());
    buffer->append(3, reinterpret_cast<const UInt8*>("xyz"));
    (buffer->*empty)();
    return buffer;
}

// Gives a new object of the kind storage adopted from a block large enough to
// be mapped on its own, then destroys it with `destroy`; true when that
// released the storage (it shows in the allocator's count of mapped bytes).
bool releasesStorage(const Kind& kind, void (*destroy)(const Kind&, KT::CBuffer*)) {
    constexpr int kLargeBlock = 8 << 20;
    KT::CBuffer* buffer = opaque(kind.make());
    buffer->set(kLargeBlock, static_cast<UInt8*>(std::malloc(kLargeBlock)), KT::ConstructionFlags(0));
    std::size_t before = mallinfo2().hblkhd;
    destroy(kind, buffer);
    return before - mallinfo2().hblkhd >= std::size_t(kLargeBlock);
}

struct SlotCheck {
    const char* slot;
    bool (*appliesTo)(const Kind&);
    void (*run)(const Kind&);
};

bool always(const Kind&) { return true; }
bool counted(const Kind& kind) { return kind.countBase != nullptr; }
bool streamed(const Kind& kind) { return kind.stream != nullptr; }

const SlotCheck kSlotChecks[] = {
    {"correction", always,
     [](const Kind& k) { require(opaque(k.make())->correction() == k.correction, "0, or -1 for a string"); }},
    {"encodeHex", always,
     [](const Kind& k) { expectCodec(k, &KT::CBuffer::encodeHex, "AB\x01", "414201"); }},
    {"decodeHex", always, [](const Kind& k) { expectCodec(k, &KT::CBuffer::decodeHex, "4142", "AB"); }},
    {"encodeBase64", always,
     [](const Kind& k) { expectCodec(k, &KT::CBuffer::encodeBase64, "AB", "QUI="); }},
    {"decodeBase64", always,
     [](const Kind& k) { expectCodec(k, &KT::CBuffer::decodeBase64, "QUI=", "AB"); }},
    {"destructor through the C base", always,
     [](const Kind& k) {
         require(releasesStorage(k, [](const Kind&, KT::CBuffer* buffer) { delete buffer; }),
                 "the storage is released");
     }},
    {"destructor through the count base", counted,
     [](const Kind& k) {
         require(releasesStorage(k, [](const Kind& kind, KT::CBuffer* buffer) {
                     delete opaque(kind.countBase(buffer));
                 }),
                 "the storage is released");
     }},
    {"clear", always,
     [](const Kind& k) {
         KT::CBuffer* buffer = emptied(k, &KT::CBuffer::clear);
         require(at<int>(buffer, kLength) == 0 && at<UInt8*>(buffer, kData)[0] == 'x',
                 "length 0, contents kept");
     }},
    {"zero", always,
     [](const Kind& k) {
         KT::CBuffer* buffer = emptied(k, &KT::CBuffer::zero);
         const UInt8* data = at<UInt8*>(buffer, kData);
         require(at<int>(buffer, kLength) == 0 && data[0] == 0 &&
                     data[at<int>(buffer, kCapacity) - 1] == 0,
                 "length 0, every byte of the capacity zero");
     }},
    {"resize", always,
     [](const Kind& k) {
         KT::CBuffer* buffer = opaque(k.make());
         buffer->resize(513);
         require(at<int>(buffer, kCapacity) == 1024, "capacity 1024");
     }},
    {"reset, and the cursor field", streamed,
     [](const Kind& k) {
         KT::CData* stream = opaque(k.stream(k.make()));
         stream->put<int>(7);
         require(at<UInt8*>(stream, kCursor) == at<UInt8*>(stream, kData) + 4, "put moves the cursor");
         stream->reset();
         require(at<UInt8*>(stream, kCursor) == at<UInt8*>(stream, kData), "reset moves it back");
         int value = 0;
         stream->get<int>(value);
         require(value == 7, "get reads what put wrote");
         stream->resize(5000);
         stream->clear();
         require(at<UInt8*>(stream, kCursor) == at<UInt8*>(stream, kData), "clear resets it too");
     }},
};

// ---------------------------------------------------------------------------
// The other classes and the free functions.

void checkBufferFunctions() {
    const Source abc("abc"), abcd("abcd");
    require(!(abc < abcd) && !(abc > abcd) && abc != abcd && !(abc == abcd), "prefix ordering");
    KT::CBuffer borrowed(0);
    borrowed.init(3, reinterpret_cast<UInt8*>(const_cast<char*>("abc")), KT::NoOwnership);
    require(borrowed == abc && at<int>(&borrowed, kOwner) == 0 && at<int>(&borrowed, kCapacity) == 3,
            "init borrows");
    borrowed.free();
    borrowed.set(3, reinterpret_cast<UInt8*>(const_cast<char*>("abd")), KT::CopyData);
    require(borrowed > abc && at<int>(&borrowed, kOwner) == 1 && at<int>(&borrowed, kCapacity) == 512,
            "set copies");
}

void checkStream() {
    KT::CData stream(0);
    stream << Source("xyz");
    require(at<int>(&stream, kLength) == 7, "a length prefix and three bytes");
    stream.reset();
    KT::CBuffer out(0);
    stream >> out;
    require(holds(&out, "xyz", 3), "read back");
    UInt8 raw[2] = {1, 2};
    stream.put(raw, 2);
    stream.reset();
    stream.get(raw, 1);
    require(raw[0] == 3, "raw bytes: the length's first byte");
}

std::string text(const KT::CString& string) {
    return reinterpret_cast<const char*>(at<UInt8*>(&string, kData));
}

void formatInto(KT::CString* string, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    string->init(format, arguments);
    va_end(arguments);
}

void checkString() {
    const KT::CString hello("Hello");
    require(at<int>(&hello, kLength) == 6 && at<int>(&hello, kCapacity) == 512, "fields");
    require(hello.find('l', 0) == 2 && hello.find("lo", 0) == 3 && hello.find(KT::CString("o"), 0) == 4,
            "find");
    require(hello.reverseFind('l', -1) == 3 && hello.reverseFind("l", -1) == -1 &&
                hello.reverseFind(KT::CString("l"), -1) == -1,
            "reverseFind");
    require(text(hello.getSubString(1, 2)) == "el" && text(hello.getLowerCaseString()) == "hello" &&
                text(hello.getUpperCaseString()) == "HELLO",
            "substrings and case");
    require(hello == "Hello" && hello != "hello", "comparison with text");
    KT::CString copy(hello);
    copy = KT::CString::createWithFormat("%d-%s", 7, "x");
    require(text(copy) == "7-x", "createWithFormat and assignment");
    copy.set("%d", 42);
    require(text(copy) == "42", "set");
    formatInto(&copy, "%s!", "va");
    require(text(copy) == "va!", "init");
    KT::RString shared = KT::RString::createWithFormat("%d", 5);
    require(text(shared) == "5" && opaque(&shared)->correction() == -1, "RString");
}

void checkExceptionSlots() {
    KT::CException exception("T", 7, "f.cpp", "fn", KT::CString("m"));
    ktbase::e::base* base = opaque(&exception);
    require(std::strcmp(base->what(), "T") == 0, "what() returns the type");
    require(std::strcmp(base->file(), "f.cpp") == 0 && base->line() == 7, "file() and line()");
    require(std::strcmp(opaque(&exception)->msg(), "m") == 0, "msg()");
    require(std::strcmp(at<const char*>(&exception, 32), "T") == 0 &&
                std::strcmp(at<const char*>(&exception, 40), "fn") == 0 &&
                std::strcmp(reinterpret_cast<const char*>(at<UInt8*>(&exception, 48 + kData)), "m") == 0,
            "type, function and message fields");
    KT::CException copy(exception);
    require(text(copy.getString()) == " Exception of type 'T' thrown [f.cpp:7, fn]: m", "getString()");
    std::fflush(stderr);
    FILE* report = std::tmpfile();
    dup2(fileno(report), 2);
    copy.print();
    char line[128] = {};
    std::rewind(report);
    require(std::fread(line, 1, sizeof line - 1, report) > 0 &&
                std::string(line) == "exception of type 'T' thrown [f.cpp:7, fn]:\n -> m\n",
            "print()");
}

template <class E>
void checkSubclass(const char* type) {
    KT::CException* exception = opaque<KT::CException>(new E(type, 1, "f", "fn", KT::CString("x")));
    require(std::strcmp(exception->what(), type) == 0 && std::strcmp(exception->msg(), "x") == 0,
            "built by its own constructor");
    delete exception;
    try {
        throw E(type, 1, "f", "fn", KT::CString("y"));
    } catch (const KT::CException& caught) {
        require(std::strcmp(caught.msg(), "y") == 0, "caught as a CException");
    }
}

void checkThrownByBuffer() {
    KT::CBuffer buffer(0);
    try {
        buffer.resize(INT_MAX);
    } catch (const KT::CNetworkException&) {
        require(false, "a plain CException");
    } catch (const KT::CException& caught) {
        require(std::strcmp(caught.what(), "KT::CException") == 0 && caught.line() == 299 &&
                    std::strcmp(caught.msg(), "memory allocation error.") == 0,
                "type, line and message");
        return;
    }
    require(false, "thrown");
}

void checkThrownBySocket() {
    try {
        KT::RServerSocket server(KT::UInt16(0), 12345, 0);  // no such socket type
    } catch (const KT::CNetworkException& caught) {
        require(std::strcmp(caught.what(), "CNetworkException") == 0, "type name");
        return;
    }
    require(false, "thrown");
}

sockaddr_in loopback(KT::UInt16 port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

KT::UInt16 boundPort(int descriptor) {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void checkThrownByAccept() {
    KT::RServerSocket server("127.0.0.1", 0, SOCK_STREAM, 2);
    server.listen(1);
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);  // no SA_RESTART: accept() fails with EINTR
    itimerval timer = {{0, 0}, {0, 50000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
    try {
        server.accept();
    } catch (const KT::CInterruptedException& caught) {
        require(std::strcmp(caught.what(), "CInterruptedException") == 0, "type name");
        return;
    }
    require(false, "thrown");
}

void checkSockets() {
    KT::RSocket none;
    require(at<int>(&none, 12) == -1 && at<sockaddr_in>(&none, 32).sin_addr.s_addr == 0xFFFFFFFFu,
            "default: no descriptor, empty remote record");
    sockaddr_in local = loopback(0);
    KT::RServerSocket server(&local, SOCK_STREAM, 2);
    require(server.listen(4) == 0, "listen");
    KT::UInt16 port = boundPort(server.descriptor);
    sockaddr_in remote = loopback(port);
    KT::RSocket client(&remote, SOCK_STREAM, nullptr, 2);
    require(at<UInt8>(&client, 48) == 2 && at<int>(&client, 52) == SOCK_STREAM &&
                at<sockaddr_in>(&client, 32).sin_port == htons(port),
            "flags, socketType and remoteAddress fields");
    require(client.connect(nullptr) == 0, "connect");
    KT::RSocket peer = server.accept();
    require(peer.isConnected() && client.isConnected(), "isConnected");
    char buffer[8] = {};
    require(client.write("ping", 4) == 4 && peer.read(buffer, 4) == 4 && std::memcmp(buffer, "ping", 4) == 0,
            "write and read");
    require(peer.send("pong", 4, 0) == 4 && client.receive(buffer, 4, 0) == 4 &&
                std::memcmp(buffer, "pong", 4) == 0,
            "send and receive");
    require(client.write("x", 1) == 1 && peer.read2(buffer, 8) == 1, "read2");
    require(client.getRemotePort() == port && client.getRemoteAddressUInt32() == INADDR_LOOPBACK &&
                std::strcmp(client.getRemoteAddress(), "127.0.0.1") == 0 &&
                client.getLocalAddressUInt32() == INADDR_LOOPBACK &&
                std::strcmp(client.getLocalAddress(), "127.0.0.1") == 0,
            "addresses");
    int on = 1, value = 0;
    unsigned int size = sizeof value;
    require(client.setOption(SO_KEEPALIVE, &on, sizeof on) == 0 &&
                client.getOption(SO_KEEPALIVE, &value, &size) == 0 && value == 1,
            "options");
    require(KT::RSocket::isRSocket(-1) == 0 && client.shutdown() == 0, "isRSocket and shutdown");
    KT::RSocket copy(client);
    KT::RSocket adopted(dup(client.descriptor), SOCK_STREAM, &remote, nullptr, 0);
    copy = adopted;
    require(copy.descriptor >= 0 && copy.descriptor != adopted.descriptor, "copies duplicate");
    adopted.reset();
    require(adopted.close() == 0 && at<int>(&adopted, 12) == -1, "reset and close");
    KT::RSocket named("127.0.0.1", port, SOCK_STREAM, 2);
    sockaddr_in any = loopback(0);
    require(named.bind(&any) == 0 && at<sockaddr_in>(&named, 32).sin_port == htons(port), "bind");
    delete opaque<ktbase::object_refcount>(new KT::RServerSocket("127.0.0.1", 0, SOCK_STREAM, 0));
}

void checkUri() {
    KT::RURI uri(KT::CString("rtsp://us:pw@127.0.0.1/x"));
    require(at<int>(&uri, 12) == 5 && at<KT::UInt16>(&uri, 112) == 554, "scheme and port fields");
    const std::size_t strings[] = {16, 48, 80, 120, 152};
    const char* const expected[] = {"us", "pw", "127.0.0.1", "/x", "rtsp://us:pw@127.0.0.1/x"};
    for (int i = 0; i < 5; ++i)
        require(std::strcmp(reinterpret_cast<const char*>(at<UInt8*>(&uri, strings[i] + kData)),
                            expected[i]) == 0,
                "user, password, host, path and uri fields");
    KT::RURI copy(uri), other;
    require(at<int>(&other, 12) == -1, "the default scheme");
    other = copy;
    require(other.parseURI(KT::CString("http://h:81/")) == 0 && other.port == 81 && other.scheme == 3,
            "parseURI");
    KT::SocketHandle handle = uri.getSocket();
    require(handle.socket && handle.socket->remoteAddress.sin_port == htons(554), "getSocket");
    uri.retain();
}

void checkEndian() {
    short s = 0x1234;
    unsigned short us = 0x1234;
    int i = 0x12345678;
    unsigned int ui = 0x12345678;
    KT::Endian::swap16(&s, 1);
    KT::Endian::swap16(&us, 1);
    KT::Endian::swap32(&i, 1);
    KT::Endian::swap32(&ui, 1);
    require(s == 0x3412 && us == 0x3412 && i == 0x78563412 && ui == 0x78563412u, "swapped");
}

// Every URL function, bound by name: getters read each part of one URL,
// setters put a new value in and the getter reads it back.
const std::string kUrl = "s://d;u:p@h:1/pa;pr?q=1#f=2";

struct UrlPart {
    ktbase::url_getter get;
    const char* value;
    ktbase::url_setter set;
    ktbase::url_maker make;
    const char* replacement;
};

const UrlPart kUrlParts[] = {
    {ktbase::url_scheme, "s", ktbase::url_set_scheme, ktbase::url_new_scheme, "t"},
    {ktbase::url_authority, "d;u:p@h:1", ktbase::url_set_authority, ktbase::url_new_authority, "a"},
    {ktbase::url_path, "/pa", ktbase::url_set_path, ktbase::url_new_path, "/b"},
    {ktbase::url_params, "pr", ktbase::url_set_params, ktbase::url_new_params, "c"},
    {ktbase::url_query, "q=1", ktbase::url_set_query, ktbase::url_new_query, "e"},
    {ktbase::url_fragment, "f=2", ktbase::url_set_fragment, ktbase::url_new_fragment, "g"},
    {ktbase::url_domain, "d", ktbase::url_set_domain, ktbase::url_new_domain, "i"},
    {ktbase::url_user, "u", ktbase::url_set_user, ktbase::url_new_user, "j"},
    {ktbase::url_password, "p", ktbase::url_set_password, ktbase::url_new_password, "k"},
    {ktbase::url_host, "h", ktbase::url_set_host, ktbase::url_new_host, "l"},
    {ktbase::url_service, "1", ktbase::url_set_service, ktbase::url_new_service, "2"},
};

void checkUrlParts() {
    for (const UrlPart& part : kUrlParts) {
        require(part.get(kUrl, false) == part.value, part.value);
        std::string changed = kUrl;
        require(part.get(part.set(changed, part.replacement, false), false) == part.replacement &&
                    part.make(kUrl, part.replacement, false) == changed,
                part.replacement);
    }
    require(ktbase::url_encode("a b/", true) == "a%20b%2f" && ktbase::url_decode("a%20b") == "a b",
            "encode and decode");
}

void checkUrlMaps() {
    const ktbase::kvmap pair = {{"a", "b"}};
    ktbase::kvmap read;
    ktbase::url_query_kvmap(read, kUrl, false, '&', '=');
    ktbase::url_params_kvmap(read, kUrl, false, '&', '=');
    ktbase::url_fragment_kvmap(read, kUrl, false, '&', '=');
    require(read == ktbase::kvmap{{"q", "1"}, {"pr", ""}, {"f", "2"}}, "maps into a map");
    require(ktbase::url_query_kvmap(kUrl, false, '&', '=') == ktbase::kvmap{{"q", "1"}} &&
                ktbase::url_params_kvmap(kUrl, false, '&', '=') == ktbase::kvmap{{"pr", ""}} &&
                ktbase::url_fragment_kvmap(kUrl, false, '&', '=') == ktbase::kvmap{{"f", "2"}},
            "maps returned");
    std::string url = kUrl;
    ktbase::url_set_query(url, pair, false, '&', '=');
    ktbase::url_set_params(url, pair, false, '&', '=');
    ktbase::url_set_fragment(url, pair, false, '&', '=');
    require(url == "s://d;u:p@h:1/pa;a%3db?a=b#a=b", "maps set");
    require(ktbase::url_new_query(kUrl, pair, false, '&', '=') == "s://d;u:p@h:1/pa;pr?a=b#f=2" &&
                ktbase::url_new_params(kUrl, pair, false, '&', '=') == "s://d;u:p@h:1/pa;a=b?q=1#f=2" &&
                ktbase::url_new_fragment(kUrl, pair, false, '&', '=') == "s://d;u:p@h:1/pa;pr?q=1#a=b",
            "maps made");
}

struct Handler : KT::CExceptionHandlerP {
    void handle(const KT::CException&) override {}
};

const struct {
    const char* name;
    void (*run)();
} kChecks[] = {
    {"CBuffer functions and fields", checkBufferFunctions},
    {"CData stream operators", checkStream},
    {"CString and RString functions", checkString},
    {"CException slots and fields", checkExceptionSlots},
    {"CNetworkException built and caught", [] { checkSubclass<KT::CNetworkException>("N"); }},
    {"CInterruptedException built and caught", [] { checkSubclass<KT::CInterruptedException>("I"); }},
    {"CExceptionHandlerP destroyed", [] { delete opaque<KT::CExceptionHandlerP>(new Handler); }},
    {"CException thrown by resize", checkThrownByBuffer},
    {"CNetworkException thrown by a socket", checkThrownBySocket},
    {"CInterruptedException thrown by accept", checkThrownByAccept},
    {"RSocket and RServerSocket", checkSockets},
    {"RURI", checkUri},
    {"Endian", checkEndian},
    {"URL getters and setters", checkUrlParts},
    {"URL maps", checkUrlMaps},
    {"build identification",
     [] { require(std::strncmp(__rev__lib_kt__kt__, "lib.kt-0.1: ", 12) == 0, "the prefix"); }},
};

// Runs one check in a child process; true when it passed.
template <class Check>
bool passes(const std::string& name, Check check) {
    std::fflush(stdout);
    pid_t child = fork();
    if (child == 0) {
        alarm(20);
        check();
        std::fflush(stdout);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    bool passed = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (WIFSIGNALED(status))
        std::printf("    crashed: %s\n", strsignal(WTERMSIG(status)));
    std::printf("%s %s\n", passed ? "ok  " : "FAIL", name.c_str());
    return passed;
}

}  // namespace

int main() {
    // A fixed threshold: every large block is mapped on its own.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    int failures = 0, total = 0;
    for (const Kind& kind : kKinds)
        for (const SlotCheck& check : kSlotChecks) {
            if (!check.appliesTo(kind)) continue;
            ++total;
            failures += !passes(std::string(kind.name) + " " + check.slot, [&] { check.run(kind); });
        }
    for (const auto& check : kChecks) {
        ++total;
        failures += !passes(check.name, check.run);
    }
    std::printf("%d of %d checks failed\n", failures, total);
    return failures ? 1 : 0;
}
