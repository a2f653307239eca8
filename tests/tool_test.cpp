// End-to-end tests of the kt program: the real binary, run as a user would.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

using test::kt;
using test::randomBytes;

// Runs a shell pipeline (for the system's own base64 and xxd).
test::ProcessResult shell(const std::string& command, const std::string& input = "") {
    return test::runProcess({"/bin/sh", "-c", command}, input);
}

std::string joined(const std::vector<std::string>& args) {
    std::string line;
    for (const std::string& arg : args) line += (line.empty() ? "" : " ") + arg;
    return line;
}

class ScratchFile {
public:
    explicit ScratchFile(const std::string& content) {
        char name[] = "/tmp/kt-tool-test-XXXXXX";
        int fd = mkstemp(name);
        path_ = name;
        if (fd >= 0) close(fd);
        std::ofstream(path_, std::ios::binary) << content;
    }
    ~ScratchFile() { std::remove(path_.c_str()); }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

TEST(ToolTest, CommandLineErrorsAndHelp) {
    struct Row {
        std::vector<std::string> args;
        int status;
        std::string outStart;  // what standard output begins with
        std::string err;       // standard error, exactly
    };
    const Row rows[] = {
        {{"--help"}, 0, "usage: kt COMMAND", ""},
        {{"version"}, 0, "lib.kt-0.1: ", ""},
        {{"version", "--help"}, 0, "usage: kt version", ""},
        {{"base64", "--help"}, 0, "usage: kt base64", ""},
        {{"hex", "-h"}, 0, "usage: kt hex", ""},
        {{"frobnicate"}, 1, "", "kt: unknown command 'frobnicate' (see kt --help)\n"},
        {{"base64", "-x"}, 1, "", "kt base64: unknown option '-x' (see kt base64 --help)\n"},
        {{"base64", "-w"}, 1, "", "kt base64: option -w needs a value (see kt base64 --help)\n"},
        {{"hex", "-w", "-3"}, 1, "",
         "kt hex: option -w takes a number from 0 to 1073741824, not '-3' (see kt hex --help)\n"},
        {{"hex", "/nonexistent/file"}, 2, "",
         "kt hex: cannot open '/nonexistent/file': No such file or directory\n"},
        {{"demo", "--help"}, 0, "usage: kt demo\n", ""},
        {{"fetch", "--help"}, 0, "usage: kt fetch ", ""},
        {{"serve", "-h"}, 0, "usage: kt serve ", ""},
        {{"demo", "now"}, 1, "", "kt demo: demo takes no arguments (see kt demo --help)\n"},
        {{"fetch"}, 1, "", "kt fetch: no URI given (see kt fetch --help)\n"},
        {{"fetch", "ftp://127.0.0.1/x"}, 1, "",
         "kt fetch: 'ftp://127.0.0.1/x' is neither an http nor an rtsp URI (see kt fetch --help)\n"},
        {{"fetch", "http://127.0.0.1:0/"}, 1, "", "kt fetch: no port in 'http://127.0.0.1:0/' (see kt fetch --help)\n"},
        {{"fetch", "http:///x"}, 1, "", "kt fetch: no host in 'http:///x' (see kt fetch --help)\n"},
        {{"fetch", "--timeout", "0", "http://127.0.0.1/"}, 1, "",
         "kt fetch: option --timeout takes a number from 1 to 86400, not '0' (see kt fetch --help)\n"},
        {{"serve"}, 1, "", "kt serve: give either --root DIR or --echo (see kt serve --help)\n"},
        {{"serve", "--echo", "--root", "/tmp"}, 1, "", "kt serve: give either --root DIR or --echo (see kt serve --help)\n"},
        {{"serve", "--echo", "--bind", "localhost"}, 1, "",
         "kt serve: option --bind takes an IPv4 address, not 'localhost' (see kt serve --help)\n"},
        {{"serve", "--echo", "--port", "65536"}, 1, "",
         "kt serve: option --port takes a number from 0 to 65535, not '65536' (see kt serve --help)\n"},
        {{"serve", "--root", "/nonexistent"}, 2, "", "kt serve: cannot use '/nonexistent': No such file or directory\n"},
        {{"serve", "--root", "/dev/null"}, 2, "", "kt serve: '/dev/null' is not a folder\n"},
        {{"url", "--help"}, 0, "usage: kt url split ", ""},
        {{"url", "query", "-h"}, 0, "usage: kt url split ", ""},
        {{"url"}, 1, "", "kt url: no subcommand given (see kt url --help)\n"},
        {{"url", "join", "s://h"}, 1, "", "kt url: unknown subcommand 'join' (see kt url --help)\n"},
        {{"url", "split", "--bogus", "s://h"}, 1, "", "kt url: unknown option '--bogus' (see kt url --help)\n"},
        {{"url", "set", "s://h"}, 1, "", "kt url: no COMPONENT=VALUE given (see kt url --help)\n"},
        {{"url", "query", "--kv", "==", "s://h"}, 1, "",
         "kt url: option --kv takes one character (see kt url --help)\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(joined(row.args));
        test::ProcessResult result = kt(row.args);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.out.substr(0, row.outStart.size()), row.outStart);
        EXPECT_EQ(result.err, row.err);
    }
    EXPECT_EQ(kt({}).status, 1);

    test::ProcessResult unwritable = shell(test::ktProgram() + " url encode a >/dev/full");
    EXPECT_EQ(unwritable.status, 2);
    EXPECT_EQ(unwritable.err, "kt url: write failed\n");
}

TEST(ToolTest, CodecsInteroperateWithSystemTools) {
    for (std::size_t size : {0u, 1u, 2u, 3u, 57u, 1u << 20}) {
        SCOPED_TRACE(size);
        std::string bytes = randomBytes(size, unsigned(size));
        ScratchFile file(bytes);

        test::ProcessResult ours = kt({"base64", file.path()});
        ASSERT_EQ(ours.status, 0);
        EXPECT_EQ(ours.out, shell("base64 " + file.path()).out);
        EXPECT_EQ(kt({"base64", "-d"}, ours.out).out, bytes);
        EXPECT_EQ(kt({"base64", "-d", "-"}, shell("base64 -w 0 " + file.path()).out).out, bytes);
        EXPECT_EQ(kt({"base64", "-w", "0"}, bytes).out, shell("base64 -w 0", bytes).out);

        test::ProcessResult hex = kt({"hex", file.path()});
        ASSERT_EQ(hex.status, 0);
        EXPECT_EQ(shell("xxd -r -p", hex.out).out, bytes);
        EXPECT_EQ(kt({"hex", "-d"}, shell("xxd -p " + file.path()).out).out, bytes);
    }
}

TEST(ToolTest, CodecsWrapAndRejectBadInput) {
    EXPECT_EQ(kt({"base64", "-w", "4"}, "Man Ma").out, "TWFu\nIE1h\n");
    EXPECT_EQ(kt({"hex", "-w", "4"}, std::string("\x00\xAB\xFF", 3)).out, "00AB\nFF\n");
    EXPECT_EQ(kt({"hex", "-d"}, "00 ab\r\nFf\n").out, std::string("\x00\xAB\xFF", 3));

    struct Row {
        std::string command, input, err;
    };
    const Row rows[] = {
        {"base64", "TWF!", "kt base64: invalid base64 input\n"},
        {"base64", "TWFuT", "kt base64: truncated base64 input\n"},
        {"hex", "0g", "kt hex: invalid hex input\n"},
        {"hex", "abc", "kt hex: truncated hex input\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.input);
        test::ProcessResult result = kt({row.command, "-d"}, row.input);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, row.err);
    }
}

TEST(ToolTest, UrlCommands) {
    struct Row {
        std::vector<std::string> args;
        std::string input;
        std::string out;
    };
    const Row rows[] = {
        {{"url", "split", "http://d;u:p@h:80/a;b?c#e"}, "",
         "scheme: http\nauthority: d;u:p@h:80\ndomain: d\nuser: u\npassword: p\nhost: h\n"
         "service: 80\npath: /a\nparams: b\nquery: c\nfragment: e\n"},
        {{"url", "split", "--json", "s:x\"\t"}, "",
         "[\n {\"url\": \"s:x\\\"\\u0009\", \"scheme\": \"s\", \"authority\": \"\", \"domain\": \"\", "
         "\"user\": \"\", \"password\": \"\", \"host\": \"\", \"service\": \"\", "
         "\"path\": \"x\\\"\\u0009\", \"params\": \"\", \"query\": \"\", \"fragment\": \"\"}\n]\n"},
        {{"url", "get", "path", "--decode", "s://h/a%20b", "/x%41"}, "", "/a b\n/xA\n"},
        {{"url", "set", "host=k", "service=", "s://u@h:80/p", "s:/p"}, "", "s://u@k/p\ns://k/p\n"},
        {{"url", "set", "--encode", "path=a b//c", "query=x=1", "s://h"}, "", "s://h/a%20b/%2fc?x%3d1\n"},
        {{"url", "query", "--decode", "s://h/?b=x%20y&a=1&&a=2"}, "", "=\na=2\nb=x y\n"},
        {{"url", "query", "--params", "s://h/p;t=i;k"}, "", "k=\nt=i\n"},
        {{"url", "query", "--fragment", "--pair", ",", "--kv", ":", "s://h/#a:1,b:2"}, "", "a=1\nb=2\n"},
        {{"url", "encode", "a b", "~/x//y"}, "", "a%20b\n%7e/x/%2fy\n"},
        {{"url", "encode", "--slashes", "-"}, "/a b\n@\n", "%2fa%20b\n%40\n"},
        {{"url", "decode"}, "a%20b+%00\n", "a b+%00\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(joined(row.args));
        test::ProcessResult result = kt(row.args, row.input);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, row.out);
    }
    EXPECT_EQ(kt({"url", "get", "port", "s://h"}).err, "kt url: unknown component 'port' (see kt url --help)\n");
    EXPECT_EQ(kt({"url", "split"}).status, 1);
}

}  // namespace
