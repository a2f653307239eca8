// Shared pieces of the kt tool's commands: exit codes, errors, arguments.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

/// Exit statuses of every command.
enum Exit { Success = 0, BadUsage = 1, Failure = 2 };

/// Thrown for a command line that cannot be used; main prints it with the
/// command's usage hint and exits with BadUsage.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Thrown for a failure at run time; main prints it and exits with Failure.
struct RunError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Thrown when the reader of standard output has gone (EPIPE, as in
/// `kt hex big | head`): main ends quietly with Success, as filters do.
struct OutputClosed : std::runtime_error {
    OutputClosed() : std::runtime_error("output closed") {}
};

/// Throws OutputClosed when errno is EPIPE, else RunError(`what` and the
/// system's message).
[[noreturn]] void writeFailed(const std::string& what);

/// The arguments after the command's name, consumed front to back.
class Arguments {
public:
    Arguments(int argc, char** argv, int first) : items_(argv + first, argv + argc) {}

    bool empty() const { return next_ >= items_.size(); }
    /// The next argument, without consuming it.
    const std::string& peek() const { return items_.at(next_); }
    /// Consumes and returns the next argument.
    std::string take() { return items_.at(next_++); }
    /// Consumes the value of option `name`; a missing one is a UsageError.
    std::string value(const std::string& name);
    /// Consumes a whole number in [low, high] for option `name`.
    long number(const std::string& name, long low, long high);
    /// True when the next argument is an option (starts with "-" but is not
    /// "-" alone, which names standard input).
    bool atOption() const;
    /// Everything not yet consumed.
    std::vector<std::string> rest();

private:
    std::vector<std::string> items_;
    std::size_t next_ = 0;
};

/// True for "-h" and "--help".
bool isHelp(const std::string& argument);
/// Takes `arg`, which none of the command's options claimed: an option
/// ("-" alone names standard input) is unknown, a first operand goes into
/// `operand`, a second one is a UsageError that `tooMany` words.
void takeOperand(const std::string& arg, std::string& operand, const char* tooMany);
/// Throws the UsageError for an option that the command does not know.
[[noreturn]] void unknownOption(const std::string& arg);

/// Opens `path` for reading ("-" or empty: standard input); throws RunError.
std::FILE* openInput(const std::string& path);
/// Opens `path` for writing ("-" or empty: standard output); throws RunError.
std::FILE* openOutput(const std::string& path);
/// Closes a stream opened above (not the standard ones); a failed write or
/// close of an output throws RunError.
void closeStream(std::FILE* stream, const std::string& path);
/// Writes all `size` bytes or throws RunError.
void writeAll(std::FILE* stream, const void* bytes, std::size_t size);

}  // namespace cli
