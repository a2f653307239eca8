// The ABI client: checks that libkt.so and libktcore.so still offer the binary
// interface that executables built against the original one rely on. It is
// built against interface.h, never the library's headers. Two tables in
// tests/data name every exported function (abi_symbols.txt) and every virtual
// table word by word (abi_vtables.txt), as the reference platform (x86-64,
// g++, libstdc++) mangles and lays them out; elsewhere the exported names are
// compared with the baseline in abi/ once demangled. The tests after them
// check what a table cannot: where the library leaves each field, how its
// exceptions are caught, and the build identification.
#include <arpa/inet.h>
#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "interface.h"

namespace {

// A row of a table in tests/data: the words of a line that is neither blank
// nor a comment, and where the line is.
struct Row {
    std::string where;
    std::vector<std::string> words;
};

std::vector<Row> readTable(const std::string& name) {
    std::ifstream in(KT_TEST_DATA_DIR "/" + name);
    EXPECT_TRUE(in.is_open()) << name;
    std::vector<Row> rows;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::istringstream words(line);
        Row row{name + ":" + std::to_string(number), {std::istream_iterator<std::string>(words), {}}};
        if (!row.words.empty() && row.words[0][0] != '#') rows.push_back(row);
    }
    return rows;
}

// The address that libkt, or a library it needs (libktcore first), gives to
// `name`; the client's own definitions do not count. Executables record the
// library by its soname, so under any other name it offers nothing.
void* exported(const std::string& name) {
    static void* const library = dlopen("libkt.so.0", RTLD_NOW | RTLD_NOLOAD);
    return library ? dlsym(library, name.c_str()) : nullptr;
}

// `mangled` as the demangler reads it.
std::string demangled(const char* mangled) {
    char* readable = abi::__cxa_demangle(mangled, nullptr, nullptr, nullptr);
    std::string name = readable ? readable : mangled;
    std::free(readable);
    return name;
}

// What is at `address`, readably, for failure messages.
std::string nameAt(const void* address) {
    Dl_info info;
    if (!dladdr(address, &info) || !info.dli_sname || info.dli_saddr != address)
        return std::to_string(reinterpret_cast<long>(address));
    return demangled(info.dli_sname);
}

// Mangled names and the words of virtual tables are the reference platform's.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && defined(__GLIBCXX__)
#define SKIP_OFF_THE_REFERENCE_PLATFORM()
#else
#define SKIP_OFF_THE_REFERENCE_PLATFORM()                                                     \
    GTEST_SKIP() << "the tables hold the names and table words of x86-64 with g++ and "      \
                    "libstdc++; ExportsTheBaselineNames checks the names here"
#endif

TEST(AbiClient, ExportsEveryFunction) {
    SKIP_OFF_THE_REFERENCE_PLATFORM();
    for (const Row& row : readTable("abi_symbols.txt")) {
        SCOPED_TRACE(row.where);
        EXPECT_NE(exported(row.words[0]), nullptr) << row.words[0];
    }
}

TEST(AbiClient, VirtualTablesHoldTheirSlotsInOrder) {
    SKIP_OFF_THE_REFERENCE_PLATFORM();
    for (const Row& row : readTable("abi_vtables.txt")) {
        SCOPED_TRACE(row.where);
        auto table = static_cast<void* const*>(exported(row.words[0]));
        Dl_info info;
        ElfW(Sym)* symbol = nullptr;
        ASSERT_TRUE(table && dladdr1(table, &info, reinterpret_cast<void**>(&symbol), RTLD_DL_SYMENT))
            << row.words[0];
        EXPECT_EQ(symbol->st_size, sizeof table[0] * (row.words.size() - 1)) << "the table's size";
        for (std::size_t i = 1; i < row.words.size() && i <= symbol->st_size / sizeof table[0]; ++i) {
            const std::string& word = row.words[i];
            const bool named = word[0] == '_';
            void* expected = named ? exported(word) : reinterpret_cast<void*>(std::stol(word));
            EXPECT_TRUE(table[i - 1] == expected && (expected || !named))
                << "word " << i - 1 << ": " << word << " expected, " << nameAt(table[i - 1]) << " found";
        }
    }
}

// The names that the library `soname`, loaded by this program, exports: the
// defined, named symbols of its dynamic symbol table, read from its file.
std::vector<std::string> exportedNames(const char* soname) {
    void* library = dlopen(soname, RTLD_NOW | RTLD_NOLOAD);
    link_map* map = nullptr;
    if (!library || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) return {};
    std::ifstream in(map->l_name, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(in), {}};
    const auto header = reinterpret_cast<const ElfW(Ehdr)*>(file.data());
    const auto sections = reinterpret_cast<const ElfW(Shdr)*>(file.data() + header->e_shoff);
    std::vector<std::string> names;
    for (int i = 0; i < header->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_DYNSYM) continue;
        const char* strings = file.data() + sections[sections[i].sh_link].sh_offset;
        const auto symbols = reinterpret_cast<const ElfW(Sym)*>(file.data() + sections[i].sh_offset);
        for (std::size_t n = 1; n < sections[i].sh_size / sizeof(ElfW(Sym)); ++n)
            if (symbols[n].st_shndx != SHN_UNDEF && symbols[n].st_name != 0)  // not a section's
                names.push_back(strings + symbols[n].st_name);
    }
    return names;
}

// `mangled` demangled, in words every platform shares: the standard library's
// inline namespaces (libstdc++'s __cxx11, libc++'s __1) dropped, and va_list
// for the type each platform's va_list stands for.
std::string portableName(const std::string& mangled) {
    std::string name = demangled(mangled.c_str());
    const std::pair<std::string, std::string> kSpellings[] = {
        {"std::__cxx11::", "std::"}, {"std::__1::", "std::"},
        {"__va_list_tag*", "va_list"}, {"std::__va_list", "va_list"}};
    for (const auto& [spelling, word] : kSpellings)
        for (std::size_t at; (at = name.find(spelling)) != std::string::npos;) name.replace(at, spelling.size(), word);
    return name;
}

// The names that abi/`library`.abi records, portable, in order.
std::vector<std::string> baselineNames(const std::string& library) {
    std::ifstream in(KT_TEST_ABI_DIR "/" + library + ".abi");
    EXPECT_TRUE(in.is_open()) << library;
    const std::string marker = "<elf-symbol name='";
    std::vector<std::string> names;
    for (std::string line; std::getline(in, line);) {
        const std::size_t at = line.find(marker);
        if (at == std::string::npos) continue;
        const std::size_t start = at + marker.size();
        names.push_back(portableName(line.substr(start, line.find('\'', start) - start)));
    }
    std::sort(names.begin(), names.end());
    return names;
}

// On every platform, each library exports the names its baseline records and
// no other: the same classes, functions, virtual tables and type information
// in namespaces KT and ktbase, and the build identification.
TEST(AbiClient, ExportsTheBaselineNames) {
    for (const std::string library : {"libkt", "libktcore"}) {
        SCOPED_TRACE(library);
        std::vector<std::string> exported;
        for (const std::string& name : exportedNames((library + ".so.0").c_str()))
            exported.push_back(portableName(name));
        std::sort(exported.begin(), exported.end());
        const std::vector<std::string> baseline = baselineNames(library);
        std::vector<std::string> missing, added;
        std::set_difference(baseline.begin(), baseline.end(), exported.begin(), exported.end(),
                            std::back_inserter(missing));
        std::set_difference(exported.begin(), exported.end(), baseline.begin(), baseline.end(),
                            std::back_inserter(added));
        EXPECT_GT(baseline.size(), 10u);
        EXPECT_EQ(missing, std::vector<std::string>());
        EXPECT_EQ(added, std::vector<std::string>());
    }
}

std::string text(const KT::CString& string) {
    return reinterpret_cast<const char*>(string.data);
}

TEST(AbiClient, LibraryLeavesEachFieldWhereTheDescriptionPutsIt) {
    KT::CData stream(0);
    stream.put<int>(7);
    const KT::CException exception("T", 7, "f.cpp", "fn", KT::CString("m"));
    const KT::RURI uri(KT::CString("rtsp://us:pw@127.0.0.1/x"));
    const KT::RSocket none;
    const KT::RServerSocket server("127.0.0.1", 0, SOCK_STREAM, 2);
    const struct {
        const char* field;
        std::string actual, expected;
    } kFields[] = {
        {"CBuffer::data", std::to_string(*reinterpret_cast<int*>(stream.data)), "7"},
        {"CBuffer::capacity", std::to_string(stream.capacity), "512"},
        {"CBuffer::length", std::to_string(stream.length), "4"},
        {"CBuffer::owner", std::to_string(stream.owner), "1"},
        {"CData::cursor", std::to_string(stream.cursor - stream.data), "4"},
        {"e::base file", exception.file_, "f.cpp"},
        {"e::base line", std::to_string(exception.line_), "7"},
        {"CException::type", exception.type, "T"},
        {"CException::function", exception.function, "fn"},
        {"CException::message", text(exception.message), "m"},
        {"RURI::scheme", std::to_string(uri.scheme), "5"},
        {"RURI::user", text(uri.user), "us"},
        {"RURI::password", text(uri.password), "pw"},
        {"RURI::host", text(uri.host), "127.0.0.1"},
        {"RURI::port", std::to_string(uri.port), "554"},
        {"RURI::path", text(uri.path), "/x"},
        {"RURI::uri", text(uri.uri), "rtsp://us:pw@127.0.0.1/x"},
        {"RSocket::descriptor", std::to_string(none.descriptor), "-1"},
        {"RSocket::descriptor, close-on-exec", std::to_string(fcntl(server.descriptor, F_GETFD)), "1"},
        {"RSocket::localAddress", inet_ntoa(server.localAddress.sin_addr), "127.0.0.1"},
        {"RSocket::remoteAddress", inet_ntoa(none.remoteAddress.sin_addr), "255.255.255.255"},
        {"RSocket::flags", std::to_string(server.flags), "2"},
        {"RSocket::socketType", std::to_string(server.socketType), std::to_string(SOCK_STREAM)},
    };
    for (const auto& row : kFields) {
        SCOPED_TRACE(row.field);
        EXPECT_EQ(row.actual, row.expected);
    }
}

// Listens on a loopback port and has a signal without restart interrupt the
// accept() that waits there.
void acceptInterrupted() {
    const KT::RServerSocket server("127.0.0.1", 0, SOCK_STREAM, 2);
    server.listen(1);
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval once = {{0, 0}, {0, 50000}};
    setitimer(ITIMER_REAL, &once, nullptr);
    server.accept();
}

TEST(AbiClient, LibraryExceptionsAreCaughtByTheirClass) {
    const struct {
        const char* thrower;
        void (*run)();
        std::string caughtAs;
    } kThrows[] = {
        {"a buffer of INT_MAX bytes", [] { KT::CBuffer buffer(INT_MAX); }, "CException"},
        {"a server socket of no known type", [] { KT::RServerSocket server(0, 12345, 0); },
         "CNetworkException"},
        {"an interrupted accept()", acceptInterrupted, "CInterruptedException"},
    };
    for (const auto& row : kThrows) {
        SCOPED_TRACE(row.thrower);
        std::string caught = "nothing";
        try {
            row.run();
        } catch (const KT::CInterruptedException&) {
            caught = "CInterruptedException";
        } catch (const KT::CNetworkException&) {
            caught = "CNetworkException";
        } catch (const KT::CException&) {
            caught = "CException";
        }
        EXPECT_EQ(caught, row.caughtAs);
    }
}

TEST(AbiClient, BuildIdentificationStartsWithTheRelease) {
    auto text = static_cast<const char* const*>(exported("__rev__lib_kt__kt__"));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(*text).substr(0, 12), "lib.kt-0.1: ");
}

}  // namespace
