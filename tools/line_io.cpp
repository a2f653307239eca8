#include "line_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "cli.h"

namespace cli {

namespace {
constexpr std::size_t kBlock = std::size_t(1) << 20;

// Writes all of `bytes` to standard output, again after an interruption.
void writeOut(const char* bytes, std::size_t size) {
    while (size > 0) {
        ssize_t wrote = ::write(STDOUT_FILENO, bytes, size);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) writeFailed("write failed");
        bytes += wrote;
        size -= std::size_t(wrote);
    }
}
}  // namespace

LineReader::LineReader(const std::string& path)
    : path_(path), fd_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)), block_(kBlock) {
    if (fd_ < 0) throw RunError("cannot open '" + path + "': " + std::strerror(errno));
}

LineReader::~LineReader() {
    if (fd_ != STDIN_FILENO) ::close(fd_);
}

bool LineReader::fill() {
    if (ended_) return false;
    // Keeps the unread rest, moved to the front; a line longer than the
    // block makes the block grow.
    std::memmove(block_.data(), block_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    if (end_ == block_.size()) block_.resize(block_.size() * 2);
    ssize_t got;
    do got = ::read(fd_, block_.data() + end_, block_.size() - end_);
    while (got < 0 && errno == EINTR);
    if (got < 0) throw RunError("cannot read '" + path_ + "': " + std::strerror(errno));
    ended_ = got == 0;
    end_ += std::size_t(got);
    return got > 0;
}

bool LineReader::next(std::string_view& line) {
    for (std::size_t searched = begin_;;) {
        const char* start = block_.data() + begin_;
        auto* feed = static_cast<const char*>(std::memchr(block_.data() + searched, '\n', end_ - searched));
        if (feed) {
            line = std::string_view(start, std::size_t(feed - start));
            begin_ = std::size_t(feed - block_.data()) + 1;
            return true;
        }
        searched = end_ - begin_;  // where the search goes on after fill() moved the rest
        if (!fill()) break;
    }
    if (begin_ == end_) return false;
    line = std::string_view(block_.data() + begin_, end_ - begin_);  // a last line without a feed
    begin_ = end_;
    return true;
}

OutputBuffer::OutputBuffer() : buffer_(std::size_t(1) << 16) {}

void OutputBuffer::flush() {
    writeOut(buffer_.data(), used_);
    used_ = 0;
}

void OutputBuffer::writeLarge(const char* bytes, std::size_t size) {
    flush();
    if (size >= buffer_.size()) {
        writeOut(bytes, size);
    } else {
        std::memcpy(buffer_.data(), bytes, size);
        used_ = size;
    }
}

}  // namespace cli
