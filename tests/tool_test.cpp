// The kt program run as a user would, case by case from data/tool_cases.txt
// (the file's head describes its format): alone, against a scripted peer, or
// with a server (kt serve, python's http.server) in the background.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "support.h"

namespace {

using namespace kttest;

struct Case {
    int line = 0;
    std::string command, in, out, err, needs, background, log, reply, request, peer;
    int status = 0, stopStatus = -1;
};

std::string unescape(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        switch (char c = text[++i]) {
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 's': out += ' '; break;
            case 'x': out += char(std::stoi(text.substr(i + 1, 2), nullptr, 16)), i += 2; break;
            default: out += c;  // \\ and \" stand for themselves
        }
    }
    return out;
}

// Adds a TEXT line to `stream`: the text and a line feed, unless it ends in "\c".
void addLine(std::string& stream, const std::string& text) {
    bool joined = text.size() >= 2 && text.compare(text.size() - 2, 2, "\\c") == 0;
    stream += unescape(text.substr(0, text.size() - (joined ? 2 : 0))) + (joined ? "" : "\n");
}

// A shell command for `kt ARGS`: each word quoted, blanks in it written "\s".
std::string ktCommand(const std::string& args) {
    std::string command = "\"$KT\"";
    for (std::size_t at = 0; at < args.size();) {
        std::size_t end = std::min(args.find(' ', at), args.size());
        std::string word = unescape(args.substr(at, end - at));
        for (std::size_t q = 0; (q = word.find('\'', q)) != std::string::npos; q += 4) word.replace(q, 1, "'\\''");
        command += " '" + word + "'";
        at = end + 1;
    }
    return command;
}

std::vector<Case> readCases(const std::string& path) {
    std::ifstream file(path);
    std::vector<Case> cases;
    std::string line;
    bool open = false;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line[0] == '#') {
            open = open && line.empty() ? false : open;
            continue;
        }
        if (!open) cases.emplace_back(), open = true;
        Case& c = cases.back();
        c.line = c.line ? c.line : number;
        std::size_t blank = line.find(' ');
        std::string key = line.substr(0, blank), rest = blank == std::string::npos ? "" : line.substr(blank + 1);
        if (key == "kt") c.command = ktCommand(rest);
        else if (key == "$") c.command = rest;
        else if (key == "<") addLine(c.in, rest);
        else if (key == ">") addLine(c.out, rest);
        else if (key == "2>") addLine(c.err, rest);
        else if (key == "?") c.status = std::stoi(rest);
        else if (key == "needs") c.needs = rest;
        else if (key == "&") c.background = rest;
        else if (key == "&>") addLine(c.log, rest);
        else if (key == "&?") c.stopStatus = std::stoi(rest);
        else if (key == "peer") c.peer = rest;
        else if (key == "peer>") addLine(c.reply, rest);
        else if (key == "peer<") addLine(c.request, rest);
        else ADD_FAILURE() << path << ":" << number << ": cannot read '" << line << "'";
    }
    return cases;
}

std::string withPort(std::string text, const std::string& port) {
    for (std::size_t at; !port.empty() && (at = text.find("PORT")) != std::string::npos;) text.replace(at, 4, port);
    return text;
}

// `got` is `expected`, or, when `expected` ends in "...\n", begins with what
// comes before that.
void expectText(const std::string& got, const std::string& expected) {
    std::size_t dots = expected.rfind("...\n");
    if (dots != std::string::npos && dots + 4 == expected.size())
        EXPECT_EQ(got.substr(0, dots), expected.substr(0, dots));
    else
        EXPECT_TRUE(got == expected) << "got \"" << got << "\"";
}

TEST(ToolTest, Cases) {
    std::vector<Case> cases = readCases(KT_TEST_DATA_DIR "/tool_cases.txt");
    ASSERT_GT(cases.size(), 100u);  // the file was found and read
    for (const Case& c : cases) {
        SCOPED_TRACE("data/tool_cases.txt:" + std::to_string(c.line));
        if (!c.needs.empty() && !onPath(c.needs)) continue;
        const Folder scratch;
        // PRELOAD names the variable that preloads a library into kt: under
        // emulation, LD_PRELOAD would reach the host's loader instead.
        std::string shell = "KT='" + ktProgram() + "' BUILD='" KT_TEST_BINARY_DIR "' DATA='" KT_TEST_DATA_DIR
                            "' TMP='" + scratch.path() + "' PRELOAD=" +
                            (KT_TEST_EMULATED ? "KT_PRELOAD" : "LD_PRELOAD") + "; ";
        std::optional<Child> server;
        std::optional<RawListener> listener;
        std::string port, request;
        if (!c.background.empty()) {
            server.emplace(std::vector<std::string>{"bash", "-c", shell + c.background});
            std::smatch found;
            // On a loaded machine a server may take longer than one wait to
            // start (python's http.server takes seconds to import).
            std::string first = server->read("\n");
            for (int wait = 1; wait < 6 && first.find('\n') == std::string::npos; ++wait)
                first = server->read("\n");
            ASSERT_TRUE(std::regex_search(first, found, std::regex("127\\.0\\.0\\.1:([0-9]+)"))) << first;
            port = found[1];
            shell += "SERVER=" + std::to_string(server->pid()) + "; ";
        } else if (c.peer == "refused") {
            port = std::to_string(refusedPort());
        } else if (!c.peer.empty()) {
            port = std::to_string(listener.emplace().port());
        }
        std::optional<Peer> peer;
        if (listener) {
            // Reads the request head, answers, and (unless it stays open)
            // ends its sending side, then waits for the client to close.
            peer.emplace([&, reply = withPort(c.reply, port)] {
                Fd connection = listener->accept();
                readInto(request, connection.get(), std::string::npos, "\r\n\r\n");
                if (!reply.empty()) writeRaw(connection.get(), reply);
                if (c.peer != "open") ::shutdown(connection.get(), SHUT_WR);
                readRaw(connection.get(), 1);
            });
        }
        const ProcessResult result = runProcess({"bash", "-c", shell + withPort(c.command, port)}, c.in,
                                                std::chrono::seconds(port.empty() ? 60 : 10));
        EXPECT_EQ(result.status, c.status);
        expectText(result.out, withPort(c.out, port));
        expectText(result.err, withPort(c.err, port));
        peer.reset();  // joined
        if (!c.request.empty()) {
            EXPECT_EQ(request, withPort(c.request, port));
        }
        if (!c.log.empty()) {
            EXPECT_NE(server->read(c.log).find(c.log), std::string::npos) << server->read();
        }
        if (c.stopStatus < 0) continue;
        const int status = server->wait();
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, c.stopStatus);
    }
}

}  // namespace
