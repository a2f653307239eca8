// End-to-end tests of the kt program: the real binary, run as a user would.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "process.h"

namespace {

using test::kt;

// Runs a shell pipeline (for the system's own base64 and xxd).
test::ProcessResult shell(const std::string& command, const std::string& input = "") {
    return test::runProcess({"/bin/sh", "-c", command}, input);
}

// `got` is `expected`, or, when `expected` ends in "...", begins with what
// comes before that.
void expectText(const std::string& got, const std::string& expected) {
    const std::size_t dots = expected.size() >= 3 ? expected.size() - 3 : 0;
    if (expected.compare(dots, 3, "...") == 0)
        EXPECT_EQ(got.substr(0, dots), expected.substr(0, dots));
    else
        EXPECT_TRUE(got == expected) << "got \"" << got << "\"";
}

// A command-line error as kt reports it: "COMMAND: MESSAGE (see COMMAND --help)".
std::string usage(const std::string& error) {
    return error + " (see " + error.substr(0, error.find(':')) + " --help)\n";
}

TEST(ToolTest, CommandLines) {
    const struct {
        std::vector<std::string> args;
        std::string input;
        int status;
        std::string out, err;
    } rows[] = {
        {{}, "", 1, "", "usage: kt COMMAND..."}, {{"--help"}, "", 0, "usage: kt COMMAND...", ""},
        {{"version"}, "", 0, "lib.kt-0.1: ...", ""},
        {{"version", "--help"}, "", 0, "usage: kt version...", ""},
        {{"base64", "--help"}, "", 0, "usage: kt base64...", ""},
        {{"hex", "-h"}, "", 0, "usage: kt hex...", ""},
        {{"demo", "--help"}, "", 0, "usage: kt demo\n...", ""},
        {{"fetch", "--help"}, "", 0, "usage: kt fetch ...", ""},
        {{"serve", "-h"}, "", 0, "usage: kt serve ...", ""},
        {{"url", "--help"}, "", 0, "usage: kt url split ...", ""},
        {{"url", "query", "-h"}, "", 0, "usage: kt url split ...", ""},
        {{"frobnicate"}, "", 1, "", usage("kt: unknown command 'frobnicate'")},
        {{"base64", "-x"}, "", 1, "", usage("kt base64: unknown option '-x'")},
        {{"base64", "-w"}, "", 1, "", usage("kt base64: option -w needs a value")},
        {{"hex", "-w", "-3"}, "", 1, "",
         usage("kt hex: option -w takes a number from 0 to 1073741824, not '-3'")},
        {{"hex", "/nonexistent/file"}, "", 2, "",
         "kt hex: cannot open '/nonexistent/file': No such file or directory\n"},
        {{"demo", "now"}, "", 1, "", usage("kt demo: demo takes no arguments")},
        {{"fetch"}, "", 1, "", usage("kt fetch: no URI given")},
        {{"fetch", "ftp://127.0.0.1/x"}, "", 1, "",
         usage("kt fetch: 'ftp://127.0.0.1/x' is neither an http nor an rtsp URI")},
        {{"fetch", "http://127.0.0.1:0/"}, "", 1, "",
         usage("kt fetch: no port in 'http://127.0.0.1:0/'")},
        {{"fetch", "http:///x"}, "", 1, "", usage("kt fetch: no host in 'http:///x'")},
        {{"fetch", "--timeout", "0", "http://127.0.0.1/"}, "", 1, "",
         usage("kt fetch: option --timeout takes a number from 1 to 86400, not '0'")},
        {{"serve"}, "", 1, "", usage("kt serve: give either --root DIR or --echo")},
        {{"serve", "--echo", "--root", "/tmp"}, "", 1, "",
         usage("kt serve: give either --root DIR or --echo")},
        {{"serve", "--echo", "--bind", "localhost"}, "", 1, "",
         usage("kt serve: option --bind takes an IPv4 address, not 'localhost'")},
        {{"serve", "--echo", "--port", "65536"}, "", 1, "",
         usage("kt serve: option --port takes a number from 0 to 65535, not '65536'")},
        {{"serve", "--root", "/nonexistent"}, "", 2, "",
         "kt serve: cannot use '/nonexistent': No such file or directory\n"},
        {{"serve", "--root", "/dev/null"}, "", 2, "", "kt serve: '/dev/null' is not a folder\n"},
        {{"url"}, "", 1, "", usage("kt url: no subcommand given")},
        {{"url", "join", "s://h"}, "", 1, "", usage("kt url: unknown subcommand 'join'")},
        {{"url", "split", "--bogus", "s://h"}, "", 1, "",
         usage("kt url: unknown option '--bogus'")},
        {{"url", "split"}, "", 1, "", usage("kt url: no URL given")},
        {{"url", "set", "s://h"}, "", 1, "", usage("kt url: no COMPONENT=VALUE given")},
        {{"url", "query", "--kv", "==", "s://h"}, "", 1, "",
         usage("kt url: option --kv takes one character")},
        {{"url", "get", "port", "s://h"}, "", 1, "", usage("kt url: unknown component 'port'")},
        // Codecs: wrapping, and input that does not decode ("...": whatever was
        // decoded before the fault may have been written).
        {{"base64", "-w", "4"}, "Man Ma", 0, "TWFu\nIE1h\n", ""},
        {{"hex", "-w", "4"}, std::string("\x00\xAB\xFF", 3), 0, "00AB\nFF\n", ""},
        {{"hex", "-d"}, "00 ab\r\nFf\n", 0, std::string("\x00\xAB\xFF", 3), ""},
        {{"base64", "-d"}, "TWF!", 2, "...", "kt base64: invalid base64 input\n"},
        {{"base64", "-d"}, "TWFuT", 2, "...", "kt base64: truncated base64 input\n"},
        {{"hex", "-d"}, "0g", 2, "...", "kt hex: invalid hex input\n"},
        {{"hex", "-d"}, "abc", 2, "...", "kt hex: truncated hex input\n"},
        // The url command's subcommands.
        {{"url", "split", "http://d;u:p@h:80/a;b?c#e"}, "", 0,
         "scheme: http\nauthority: d;u:p@h:80\ndomain: d\nuser: u\npassword: p\nhost: h\n"
         "service: 80\npath: /a\nparams: b\nquery: c\nfragment: e\n", ""},
        {{"url", "split", "--json", "s:x\"\t"}, "", 0,
         "[\n {\"url\": \"s:x\\\"\\u0009\", \"scheme\": \"s\", \"authority\": \"\", \"domain\": \"\", "
         "\"user\": \"\", \"password\": \"\", \"host\": \"\", \"service\": \"\", "
         "\"path\": \"x\\\"\\u0009\", \"params\": \"\", \"query\": \"\", \"fragment\": \"\"}\n]\n", ""},
        {{"url", "get", "path", "--decode", "s://h/a%20b", "/x%41"}, "", 0, "/a b\n/xA\n", ""},
        {{"url", "set", "host=k", "service=", "s://u@h:80/p", "s:/p"}, "", 0,
         "s://u@k/p\ns://k/p\n", ""},
        {{"url", "set", "--encode", "path=a b//c", "query=x=1", "s://h"}, "", 0,
         "s://h/a%20b/%2fc?x%3d1\n", ""},
        {{"url", "query", "--decode", "s://h/?b=x%20y&a=1&&a=2"}, "", 0, "=\na=2\nb=x y\n", ""},
        {{"url", "query", "--params", "s://h/p;t=i;k"}, "", 0, "k=\nt=i\n", ""},
        {{"url", "query", "--fragment", "--pair", ",", "--kv", ":", "s://h/#a:1,b:2"}, "", 0,
         "a=1\nb=2\n", ""},
        {{"url", "encode", "a b", "~/x//y"}, "", 0, "a%20b\n%7e/x/%2fy\n", ""},
        {{"url", "encode", "--slashes", "-"}, "/a b\n@\n", 0, "%2fa%20b\n%40\n", ""},
        {{"url", "decode"}, "a%20b+%00\n", 0, "a b+%00\n", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        const test::ProcessResult result = kt(row.args, row.input);
        EXPECT_EQ(result.status, row.status);
        expectText(result.out, row.out);
        expectText(result.err, row.err);
    }
    const test::ProcessResult unwritable = shell(test::ktProgram() + " url encode a >/dev/full");
    EXPECT_EQ(unwritable.status, 2);
    EXPECT_EQ(unwritable.err, "kt url: write failed\n");
}

TEST(ToolTest, CodecsInteroperateWithSystemTools) {
    for (std::size_t size : {0u, 1u, 2u, 3u, 57u, 1u << 20}) {
        SCOPED_TRACE(size);
        const std::string bytes = test::randomBytes(size, unsigned(size));
        const test::Folder folder;
        const std::string file = folder.write("bytes", bytes);

        const test::ProcessResult ours = kt({"base64", file});
        ASSERT_EQ(ours.status, 0);
        EXPECT_EQ(ours.out, shell("base64 " + file).out);
        EXPECT_EQ(kt({"base64", "-d"}, ours.out).out, bytes);
        EXPECT_EQ(kt({"base64", "-d", "-"}, shell("base64 -w 0 " + file).out).out, bytes);
        EXPECT_EQ(kt({"base64", "-w", "0"}, bytes).out, shell("base64 -w 0", bytes).out);

        const test::ProcessResult hex = kt({"hex", file});
        ASSERT_EQ(hex.status, 0);
        EXPECT_EQ(shell("xxd -r -p", hex.out).out, bytes);
        EXPECT_EQ(kt({"hex", "-d"}, shell("xxd -p " + file).out).out, bytes);
    }
}

}  // namespace
