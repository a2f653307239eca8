// The kt program run as a user would, case by case from data/tool_cases.txt
// (the file's head describes its format).
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "support.h"

namespace {

struct Case {
    int line = 0;
    std::vector<std::string> argv;
    std::string in, out, err;
    int status = 0;
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
        if (key == "kt") {
            c.argv = {kttest::ktProgram()};
            for (std::size_t at = 0; at < rest.size();) {
                std::size_t end = std::min(rest.find(' ', at), rest.size());
                c.argv.push_back(unescape(rest.substr(at, end - at)));
                at = end + 1;
            }
        } else if (key == "$") {
            c.argv = {"/bin/sh", "-c", "KT='" + kttest::ktProgram() + "' BUILD='" + KT_TEST_BINARY_DIR + "'; " + rest};
        } else if (key == "<") addLine(c.in, rest);
        else if (key == ">") addLine(c.out, rest);
        else if (key == "2>") addLine(c.err, rest);
        else if (key == "?") c.status = std::stoi(rest);
        else ADD_FAILURE() << path << ":" << number << ": cannot read '" << line << "'";
    }
    return cases;
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
    std::string file = __FILE__;
    std::vector<Case> cases = readCases(file.substr(0, file.rfind('/')) + "/data/tool_cases.txt");
    ASSERT_GT(cases.size(), 80u);  // the file was found and read
    for (const Case& c : cases) {
        SCOPED_TRACE("data/tool_cases.txt:" + std::to_string(c.line));
        const kttest::ProcessResult result = kttest::runProcess(c.argv, c.in);
        EXPECT_EQ(result.status, c.status);
        expectText(result.out, c.out);
        expectText(result.err, c.err);
    }
}

}  // namespace
