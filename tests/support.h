// What the suites share: buffers to and from std::string, the check of a
// thrown exception, failing the library's allocations in turn, loopback peers
// whose every wait is bounded, a DNS responder on loopback, and child
// processes that are always reaped.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "kt/KTBuffer.h"
#include "kt/KTException.h"
#include "kt/KTString.h"

extern char** environ;

namespace kttest {

// --- Buffers ------------------------------------------------------------------

/// The bytes in use.
inline std::string bytesOf(const KT::CBuffer& buffer) {
    if (buffer.length <= 0) return {};
    return std::string(reinterpret_cast<const char*>(buffer.data), size_t(buffer.length));
}

/// The bytes of `text`, as the library's calls take them.
inline const KT::UInt8* bytes(const std::string& text) {
    return reinterpret_cast<const KT::UInt8*>(text.data());
}

/// The first `count` bytes of the storage, in use or not.
inline std::string memoryOf(const KT::CBuffer& buffer, int count) {
    return std::string(reinterpret_cast<const char*>(buffer.data), size_t(count));
}

/// A buffer (or string) holding exactly `bytes` in storage of its own.
template <class Buffer = KT::CBuffer>
Buffer bufferOf(const std::string& bytes) {
    Buffer buffer;
    buffer.set(int(bytes.size()), reinterpret_cast<KT::UInt8*>(const_cast<char*>(bytes.data())),
               KT::CopyData);
    return buffer;
}

/// `size` bytes, the same for the same `seed`.
inline std::string randomBytes(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = char(generator() & 0xFF);
    return bytes;
}

// --- Case tables ------------------------------------------------------------------

/// A field of a case table as bytes. `\xNN` is the byte NN, `\iN;` the four
/// bytes of the int N as this host stores them, `c{N}` the byte c N times in
/// all (`x{511}`; a `{` before anything but a digit is itself).
inline std::string unescaped(const std::string& field) {
    std::string bytes;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field.compare(i, 2, "\\x") == 0) {
            bytes += char(std::stoi(field.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else if (field.compare(i, 2, "\\i") == 0) {
            const size_t end = field.find(';', i);
            const std::int32_t value = std::stoi(field.substr(i + 2, end - i - 2));
            bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
            i = end;
        } else if (field[i] == '{' && !bytes.empty() && std::isdigit(field[i + 1])) {
            const size_t end = field.find('}', i);
            bytes.append(std::stoul(field.substr(i + 1, end - i - 1)) - 1, bytes.back());
            i = end;
        } else {
            bytes += field[i];
        }
    }
    return bytes;
}

/// What an operation gives for a case, each result as the case writes it.
using Results = std::vector<std::string>;

/// One case of a table: `operation arguments... -> results...`.
struct Case {
    std::string where, operation;
    Results arguments, results;
    const std::string& operator[](size_t i) const { return arguments.at(i); }
    int number(size_t i) const { return std::stoi(arguments.at(i)); }
};

inline std::string result(const std::string& bytes) { return bytes; }
inline std::string result(long long number) { return std::to_string(number); }

/// The results `values`: numbers in decimal, bytes as they are.
template <class... Values>
Results results(const Values&... values) {
    return {result(values)...};
}

/// The cases of tests/data/`file`, one a line, fields separated by blanks (a
/// field in double quotes may hold blanks, and `""` is the empty field);
/// blank lines and lines starting with '#' are left out.
inline std::vector<Case> casesOf(const std::string& file) {
    std::ifstream in(std::string(KT_TEST_DATA_DIR) + "/" + file);
    EXPECT_TRUE(in.is_open()) << file;
    std::vector<Case> cases;
    std::string line, field;
    for (int number = 1; std::getline(in, line); ++number) {
        std::istringstream fields(line);
        Case row;
        row.where = file + ":" + std::to_string(number);
        if (!(fields >> row.operation) || row.operation[0] == '#') continue;
        // No escape character inside quotes: the backslash is unescaped()'s.
        for (auto* into = &row.arguments; fields >> std::quoted(field, '"', '\0');) {
            if (field == "->") into = &row.results;
            else into->push_back(unescaped(field));
        }
        cases.push_back(row);
    }
    return cases;
}

/// What each operation of a table does with a case.
using Operations = std::map<std::string, std::function<Results(const Case&)>>;

/// Runs every case of tests/data/`file` through its operation, which must give
/// the results the case lists.
inline void runCases(const std::string& file, const Operations& operations) {
    for (const Case& row : casesOf(file)) {
        SCOPED_TRACE(row.where);
        EXPECT_EQ(operations.at(row.operation)(row), row.results);
    }
}

// --- Exceptions -----------------------------------------------------------------

/// Everything a throw site puts into its exception.
struct ThrowSite {
    const char* type;
    unsigned line;
    const char* file;
    const char* function;
    const char* message;
};

/// What socket() says of a type that nobody knows: EINVAL. Under emulation
/// the answer is the emulator's, not the system's (qemu-user gives
/// ESOCKTNOSUPPORT), and either is taken: this is the one it gives.
inline const char* unknownSocketTypeMessage() {
    int error = EINVAL;
    if (KT_TEST_EMULATED) {
        const int saved = errno, descriptor = ::socket(AF_INET, 12345, 0);
        if (descriptor >= 0) ::close(descriptor);
        else if (errno == ESOCKTNOSUPPORT) error = errno;
        errno = saved;
    }
    return std::strerror(error);
}

inline const ThrowSite kBufferInitSite{
    "KT::CException", 44, "lib/kt/KTBuffer.cpp",
    "void KT::CBuffer::init(KT::SIntLeast32, KT::UInt8*, KT::ConstructionFlags)",
    "memory allocation error"};

/// Expects `thrown` to carry exactly what `site` puts in it, read through every
/// accessor and, with `reports`, through both reports: getString()'s one line
/// and print()'s two lines on standard error. The reports allocate, so a check
/// while allocations are being failed leaves them out.
inline void expectSite(const KT::CException& thrown, const ThrowSite& site, bool reports = true) {
    EXPECT_STREQ(thrown.what(), site.type);
    EXPECT_STREQ(thrown.file(), site.file);
    EXPECT_EQ(thrown.line(), site.line);
    EXPECT_STREQ(thrown.function, site.function);
    EXPECT_STREQ(thrown.msg(), site.message);
    if (!reports) return;
    const std::string where = std::string(site.type) + "' thrown [" + site.file + ":" +
                              std::to_string(site.line) + ", " + site.function + "]:";
    EXPECT_EQ(bytesOf(thrown.message), std::string(site.message) + '\0');
    EXPECT_EQ(bytesOf(thrown.getString()),
              " Exception of type '" + where + " " + site.message + '\0');
    testing::internal::CaptureStderr();
    thrown.print();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "exception of type '" + where + "\n -> " + site.message + "\n");
}

/// Runs `action`, which must throw exactly E holding what `site` puts in it.
template <class E = KT::CException, class Action>
void expectThrow(Action&& action, const ThrowSite& site) {
    try {
        action();
        ADD_FAILURE() << "nothing thrown";
    } catch (const E& e) {
        EXPECT_EQ(typeid(e), typeid(E));
        expectSite(e, site);
    }
}

/// Runs `operation`, which must throw the exception of `site` when it has the
/// memory it needs, and returns once it has: wrapped in it, an operation that
/// fails by design can go through expectFailures() (allocation_faults.h), which
/// fails the allocations of the site's own report (its message and the
/// exception's copy of it). Any other exception passes through.
inline void whenThrownBy(const ThrowSite& site, const std::function<void()>& operation) {
    try {
        operation();
    } catch (const KT::CException& thrown) {
        if (thrown.line() != site.line || std::string(thrown.file()) != site.file) throw;
        expectSite(thrown, site, false);
        return;
    }
    ADD_FAILURE() << "nothing thrown, expected " << site.file << ":" << site.line;
}

/// The throw sites of the socket sources, as their exceptions report them.
namespace sites {
constexpr char kSocketFile[] = "lib/kt/KTSocket.cpp";
constexpr char kServerFile[] = "lib/kt/KTServerSocket.cpp";
constexpr char kRecordConstructor[] =
    "KT::RSocket::RSocket(sockaddr_in*, int, sockaddr_in*, KT::UInt8)";
constexpr char kHostConstructor[] = "KT::RSocket::RSocket(const char*, KT::UInt16, int, KT::UInt8)";
constexpr char kBind[] = "KT::Result KT::RSocket::bind(sockaddr_in*)";
constexpr char kListen[] = "KT::Result KT::RServerSocket::listen(int) const";
constexpr char kAccept[] = "KT::RSocket KT::RServerSocket::accept() const";
constexpr int kBindLine = 102;
constexpr int kSocketLine = 131;
constexpr int kResolveLine = 153;
constexpr int kListenLine = 58;
constexpr int kInterruptedLine = 77;
constexpr int kAcceptLine = 80;
}  // namespace sites

// --- Descriptors and loopback peers ---------------------------------------------

/// The longest any single wait in these suites may last, in milliseconds.
constexpr int kWaitMs = 5000;

/// The number of descriptors open in process `pid` (this one by default).
inline int openDescriptors(const std::string& pid = "self") {
    // Less the one that reads the folder, when it is this process's.
    return int(std::distance(std::filesystem::directory_iterator("/proc/" + pid + "/fd"), {})) -
           (pid == "self");
}

/// Fails the test when it leaves a descriptor open (or closes one it did not
/// open).
class NoLeakTest : public ::testing::Test {
protected:
    void SetUp() override { before_ = openDescriptors(); }
    void TearDown() override { EXPECT_EQ(openDescriptors(), before_) << "descriptors leaked"; }

private:
    int before_ = 0;
};

/// A write to a connection the peer has closed must fail with EPIPE, not kill
/// the suite.
inline const auto kIgnoreSigpipe = ::signal(SIGPIPE, SIG_IGN);

/// An owned raw descriptor, closed when the object goes.
class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd& operator=(Fd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Fd() { close(); }
    int get() const { return fd_; }
    void close() {
        if (fd_ != -1) ::close(std::exchange(fd_, -1));
    }

private:
    int fd_;
};

inline sockaddr* asGeneric(sockaddr_in* record) { return reinterpret_cast<sockaddr*>(record); }

/// The record of 127.0.0.1:`port`.
inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in record{};
    record.sin_family = AF_INET;
    record.sin_port = htons(port);
    record.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return record;
}

/// What the sockets store for an address the caller did not give: all zero
/// but the address, INADDR_NONE.
inline sockaddr_in emptyRecord() {
    sockaddr_in record{};
    record.sin_addr.s_addr = INADDR_NONE;
    return record;
}

inline bool sameRecord(const sockaddr_in& a, const sockaddr_in& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

/// The local port of a bound socket.
inline std::uint16_t localPort(int fd) {
    sockaddr_in record{};
    socklen_t length = sizeof record;
    ::getsockname(fd, asGeneric(&record), &length);
    return ntohs(record.sin_port);
}

inline bool closeOnExec(int fd) { return (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

/// Bounds every blocking read, write and accept on `fd` to kWaitMs.
inline void boundWaits(int fd) {
    timeval limit{kWaitMs / 1000, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

/// Waits until `fd` is readable; false after kWaitMs.
inline bool waitReadable(int fd) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, kWaitMs) == 1;
}

/// Waits until at least `count` bytes are queued for reading on `fd`; false
/// after kWaitMs.
inline bool waitPending(int fd, int count) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    int pending = 0;
    while (::ioctl(fd, FIONREAD, &pending) == 0 && pending < count) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return pending >= count;
}

/// Appends to `text` what `fd` gives until `text` holds `count` bytes or
/// `end`, end of stream, an error or kWaitMs without data.
inline std::string& readInto(std::string& text, int fd, std::size_t count,
                             const std::string& end = std::string()) {
    char chunk[4096];
    while (text.size() < count && (end.empty() || text.find(end) == std::string::npos) &&
           waitReadable(fd)) {
        ssize_t n = ::read(fd, chunk, std::min(sizeof chunk, count - text.size()));
        if (n <= 0) break;
        text.append(chunk, std::size_t(n));
    }
    return text;
}

/// Reads from a raw descriptor until `count` bytes, end of stream, an error
/// or kWaitMs without data.
inline std::string readRaw(int fd, std::size_t count) {
    std::string text;
    return readInto(text, fd, count);
}

inline void writeRaw(int fd, const std::string& text) {
    ASSERT_EQ(::write(fd, text.data(), text.size()), ssize_t(text.size()));
}

/// A raw listening socket on 127.0.0.1 with a port chosen by the system.
/// Connections complete in its backlog, so a client in the same thread can
/// connect before accept() is called.
class RawListener {
public:
    RawListener() : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in any = loopback(0);
        ::bind(fd_.get(), asGeneric(&any), sizeof any);
        ::listen(fd_.get(), 16);
    }
    int fd() const { return fd_.get(); }
    std::uint16_t port() const { return localPort(fd_.get()); }
    sockaddr_in address() const { return loopback(port()); }
    /// Takes one connection, waiting at most kWaitMs (-1 then).
    Fd accept() const {
        if (!waitReadable(fd_.get())) return Fd();
        Fd connection(::accept(fd_.get(), nullptr, nullptr));
        boundWaits(connection.get());
        return connection;
    }

private:
    Fd fd_;
};

/// A raw client connected to `address` (-1 when refused).
inline Fd rawConnect(sockaddr_in address) {
    Fd client(::socket(AF_INET, SOCK_STREAM, 0));
    boundWaits(client.get());
    if (::connect(client.get(), asGeneric(&address), sizeof address) != 0) return Fd();
    return client;
}

/// A loopback port that nobody listens on: chosen by the system, then freed.
inline std::uint16_t refusedPort() {
    Fd probe(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in any = loopback(0);
    ::bind(probe.get(), asGeneric(&any), sizeof any);
    return localPort(probe.get());
}

/// A thread running a peer's side of a test, joined when the object goes; the
/// body must bound its own waits.
class Peer {
public:
    template <class Body>
    explicit Peer(Body&& body) : thread_(std::forward<Body>(body)) {}
    ~Peer() { join(); }
    void join() {
        if (thread_.joinable()) thread_.join();
    }
    std::thread::native_handle_type handle() { return thread_.native_handle(); }

private:
    std::thread thread_;
};

/// A do-nothing SIGUSR1 handler installed without SA_RESTART, so that the
/// signal breaks a blocking call with EINTR; the old action comes back after.
class InterruptingSignal {
public:
    InterruptingSignal() {
        struct sigaction action {};  // no flags: no SA_RESTART
        action.sa_handler = [](int) {};
        ::sigaction(SIGUSR1, &action, &old_);
    }
    ~InterruptingSignal() { ::sigaction(SIGUSR1, &old_, nullptr); }

private:
    struct sigaction old_;
};

/// The h_errno with which every host-name lookup in a suite fails, but those
/// of "localhost" and of "hostN" (N below 256): no name ever reaches a name
/// server. Set by tests of failures.
inline thread_local int hostLookupError = HOST_NOT_FOUND;
/// The room a lookup of this thread needs for its answer: given less, it
/// fails with ERANGE, as the C library's does. Set by tests of that.
inline thread_local std::size_t hostLookupRoom = 0;
/// The number of host-name lookups made so far.
inline std::atomic<int> hostLookups{0};

}  // namespace kttest

// Each suite is one source file, so this definition is its program's only
// one; it comes before the C library's, for the library under test too.
// "localhost" is 127.0.0.1 and "hostN" 10.0.0.N; the answer is written to the
// caller's room, as the C library writes it.
extern "C" int gethostbyname_r(const char* name, hostent* entry, char* room, std::size_t size,
                               hostent** found, int* error) {
    ++kttest::hostLookups;
    *found = nullptr;
    *error = NETDB_SUCCESS;
    unsigned number = 0;
    char end = 0;
    in_addr address{htonl(INADDR_LOOPBACK)};
    if (std::sscanf(name, "host%u%c", &number, &end) == 1 && number < 256) {
        address.s_addr = htonl(0x0A000000u | number);
    } else if (std::strcmp(name, "localhost") != 0) {
        *error = kttest::hostLookupError;
        return 0;
    }
    // The room holds the address list, the address and the name, in turn.
    const std::size_t needed = 2 * sizeof(char*) + sizeof address + std::strlen(name) + 1;
    if (size < std::max(needed, kttest::hostLookupRoom)) {
        *error = NETDB_INTERNAL;
        return ERANGE;
    }
    char** addresses = reinterpret_cast<char**>(room);
    addresses[0] = room + 2 * sizeof(char*);
    addresses[1] = nullptr;
    std::memcpy(addresses[0], &address, sizeof address);
    char* copy = std::strcpy(addresses[0] + sizeof address, name);
    *entry = hostent{copy, nullptr, AF_INET, sizeof address, addresses};
    // A slow lookup: other threads run before the caller reads the answer.
    std::this_thread::yield();
    *found = entry;
    return 0;
}

// The shared-answer lookup must not be used; should it be, no name reaches a
// name server either.
extern "C" hostent* gethostbyname(const char* name) {
    ADD_FAILURE() << "gethostbyname(\"" << name << "\") called";
    h_errno = HOST_NOT_FOUND;
    return nullptr;
}

namespace kttest {

// --- Files and child processes --------------------------------------------------

/// A folder of files for a test, removed with its content when the object goes.
class Folder {
public:
    Folder() {
        char name[] = "/tmp/kt-test-XXXXXX";
        path_ = ::mkdtemp(name) ? name : "";
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    const std::string& path() const { return path_; }
    /// Writes `content` to `name` under the folder (making parent folders);
    /// returns the file's path.
    std::string write(const std::string& name, const std::string& content) const {
        std::filesystem::path file = std::filesystem::path(path_) / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file.string();
    }

private:
    std::string path_;
};

/// True when `program` is an executable file on the PATH.
inline bool onPath(const std::string& program) {
    return std::system(("command -v '" + program + "' >/dev/null 2>&1").c_str()) == 0;
}

/// A child program (looked up on the PATH) with `in`, `out` and `err` as its
/// standard streams; without them, its output comes back through a pipe, read
/// by read(), and its input and errors are /dev/null. It gets this environment
/// without any proxy setting, so that it talks to loopback directly. Ended and
/// reaped when the object goes, however the test ends.
class Child {
public:
    explicit Child(const std::vector<std::string>& arguments, int in = -1, int out = -1, int err = -1) {
        int ends[2] = {-1, -1};
        if (out == -1 && ::pipe2(ends, O_CLOEXEC) != 0) return;
        output_ = Fd(ends[0]);
        const Fd input(ends[1]), null(out == -1 ? ::open("/dev/null", O_RDWR | O_CLOEXEC) : -1);
        if (out == -1) in = err = null.get(), out = input.get();
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        const int streams[] = {in, out, err};
        for (int stream = 0; stream < 3; ++stream)
            ::posix_spawn_file_actions_adddup2(&actions, streams[stream], stream);
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (char** entry = environ; *entry; ++entry) {
            std::string name(*entry, std::strcspn(*entry, "="));
            if (name.size() < 6 || ::strcasecmp(name.c_str() + name.size() - 6, "_proxy") != 0)
                envp.push_back(*entry);
        }
        envp.push_back(nullptr);
        if (::posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0)
            pid_ = -1;
        ::posix_spawn_file_actions_destroy(&actions);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (pid_ <= 0) return;
        // Asked to end first, so that it ends as it would for a user and
        // writes what it writes on the way out (its coverage counts among
        // them); killed when it has not ended after kWaitMs.
        ::kill(pid_, SIGTERM);
        if (wait() != -1) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    bool started() const { return pid_ > 0; }
    /// The child's process id; -1 once wait() has reaped it.
    pid_t pid() const { return pid_; }

    /// Reads the child's output until it holds `end` (with an empty `end`:
    /// until the child closes it), the child closes it, or kWaitMs pass
    /// without data; returns all read so far.
    std::string read(const std::string& end = std::string()) {
        return readInto(text_, output_.get(), std::string::npos, end);
    }

    /// Waits up to `limitMs` for the child to end; its wait status, or -1.
    int wait(int limitMs = kWaitMs) {
        for (int waited = 0; waited < limitMs; waited += 2) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return status;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return -1;
    }

private:
    Fd output_;
    pid_t pid_ = -1;
    std::string text_;
};

struct ProcessResult {
    std::string out;
    std::string err;
    int status = -1;  // exit status, or -1 when killed or not started
};

/// Runs `argv` (argv[0] is the program) with `input` on standard input. The
/// three standard streams are files, so that nothing waits on a pipe; the
/// child is killed when it outlives `limit`.
inline ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input = "",
                                std::chrono::milliseconds limit = std::chrono::seconds(60)) {
    const Folder streams;
    auto open = [&](const char* name, int mode) {
        return Fd(
            ::open(streams.write(name, name[0] == 'i' ? input : "").c_str(), mode | O_CLOEXEC));
    };
    ProcessResult result;
    {
        const Fd in = open("in", O_RDONLY), out = open("out", O_WRONLY),
                 err = open("err", O_WRONLY);
        Child child(argv, in.get(), out.get(), err.get());
        const int status = child.started() ? child.wait(int(limit.count())) : -1;
        if (status != -1 && WIFEXITED(status)) result.status = WEXITSTATUS(status);
    }
    for (std::string* text : {&result.out, &result.err}) {
        std::ifstream in(streams.path() + (text == &result.out ? "/out" : "/err"), std::ios::binary);
        text->assign(std::istreambuf_iterator<char>(in), {});
    }
    return result;
}

/// The kt program of this build (under emulation, a launcher that runs it in
/// the emulator).
inline std::string ktProgram() { return KT_TEST_KT_PROGRAM; }

}  // namespace kttest
