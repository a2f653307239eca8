#include "cli.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace cli {

std::string Arguments::value(const std::string& name) {
    if (empty()) throw UsageError("option " + name + " needs a value");
    return take();
}

long Arguments::number(const std::string& name, long low, long high) {
    std::string text = value(name);
    char* end = nullptr;
    errno = 0;
    long n = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || n < low || n > high)
        throw UsageError("option " + name + " takes a number from " + std::to_string(low) + " to " +
                         std::to_string(high) + ", not '" + text + "'");
    return n;
}

bool Arguments::atOption() const {
    return !empty() && peek().size() > 1 && peek()[0] == '-';
}

void takeOperand(const std::string& arg, std::string& operand, const char* tooMany) {
    if (arg.size() > 1 && arg[0] == '-') unknownOption(arg);
    if (!operand.empty()) throw UsageError(tooMany);
    operand = arg;
}

void unknownOption(const std::string& arg) { throw UsageError("unknown option '" + arg + "'"); }

std::vector<std::string> Arguments::rest() {
    std::vector<std::string> left(items_.begin() + long(next_), items_.end());
    next_ = items_.size();
    return left;
}

bool isHelp(const std::string& argument) { return argument == "-h" || argument == "--help"; }

namespace {
bool isStandard(const std::string& path) { return path.empty() || path == "-"; }
}  // namespace

std::FILE* openInput(const std::string& path) {
    if (isStandard(path)) return stdin;
    std::FILE* stream = std::fopen(path.c_str(), "rb");
    if (!stream) throw RunError("cannot open '" + path + "': " + std::strerror(errno));
    return stream;
}

std::FILE* openOutput(const std::string& path) {
    if (isStandard(path)) return stdout;
    std::FILE* stream = std::fopen(path.c_str(), "wb");
    if (!stream) throw RunError("cannot create '" + path + "': " + std::strerror(errno));
    return stream;
}

void writeFailed(const std::string& what) {
    if (errno == EPIPE) throw OutputClosed();
    throw RunError(what + ": " + std::strerror(errno));
}

void closeStream(std::FILE* stream, const std::string& path) {
    bool failed = std::ferror(stream) != 0;
    if (stream == stdout) failed = std::fflush(stream) != 0 || failed;
    else if (stream != stdin) failed = std::fclose(stream) != 0 || failed;
    if (failed) writeFailed("cannot write '" + (isStandard(path) ? std::string("-") : path) + "'");
}

void writeAll(std::FILE* stream, const void* bytes, std::size_t size) {
    if (size > 0 && std::fwrite(bytes, 1, size, stream) != size) writeFailed("write failed");
}

}  // namespace cli
