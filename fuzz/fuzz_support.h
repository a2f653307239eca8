// Shared by the fuzz targets: the one way to report a broken invariant, and a
// reader that cuts an input into the pieces a target needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// abort() is what libFuzzer and the replay main both treat as a crash.
#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                          \
        }                                                                                          \
    } while (0)

namespace fuzz {

/// Reads an input front to back: single bytes, and texts ending at a NUL
/// byte (which is consumed) or at the end of the input.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    /// The next byte, or 0 at the end.
    std::uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }

    /// The bytes up to the next NUL or the end.
    std::string text() {
        std::size_t start = at_;
        while (at_ < size_ && data_[at_] != 0) ++at_;
        std::string piece(reinterpret_cast<const char*>(data_) + start, at_ - start);
        if (at_ < size_) ++at_;
        return piece;
    }

    bool empty() const { return at_ >= size_; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

}  // namespace fuzz
