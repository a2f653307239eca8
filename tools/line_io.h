// Line-oriented input and output for commands that handle millions of short
// lines: input read in large blocks and cut at line feeds with memchr, output
// gathered in one buffer and written in large pieces.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// Reads the lines of a file ("-": standard input) a block at a time.
class LineReader {
public:
    /// Opens `path`; throws RunError when it cannot.
    explicit LineReader(const std::string& path);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /// Sets `line` to the next line without its line feed (a last line may
    /// lack one); false at the end. `line` stays valid until the next call.
    /// Throws RunError when reading fails.
    bool next(std::string_view& line);

private:
    /// Reads more after the unread rest; false when nothing more came.
    bool fill();

    std::string path_;
    int fd_;
    std::vector<char> block_;
    std::size_t begin_ = 0, end_ = 0;
    bool ended_ = false;
};

/// Standard output through one buffer. A failed write throws as
/// cli::writeFailed() does (OutputClosed when the reader has gone).
class OutputBuffer {
public:
    OutputBuffer();
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    void write(const char* bytes, std::size_t size) {
        if (size > buffer_.size() - used_) {
            writeLarge(bytes, size);
            return;
        }
        std::memcpy(buffer_.data() + used_, bytes, size);
        used_ += size;
    }
    void write(std::string_view text) { write(text.data(), text.size()); }
    void put(char byte) {
        if (used_ == buffer_.size()) flush();
        buffer_[used_++] = byte;
    }
    /// Writes out what the buffer holds.
    void flush();

private:
    void writeLarge(const char* bytes, std::size_t size);

    std::vector<char> buffer_;
    std::size_t used_ = 0;
};

}  // namespace cli
