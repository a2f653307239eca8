// Private: the hex and Base64 kernels over raw bytes, shared by the buffer
// and string codecs. Output sizes are the caller's business: each kernel
// writes exactly what it returns (or what its comment says).
//
// Each operation runs on the fastest kernel set this machine supports,
// chosen at the first call; every set gives the same bytes as the plain one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KT {
namespace codec {

/// Writes 2 * n upper-case hex digits for the n bytes at `in`.
void hexEncode(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
/// Writes `pairs` bytes, one per pair of digits at `in`. An invalid first
/// digit reads as 15, an invalid second digit makes the byte 255.
void hexDecode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out);
/// Writes the padded Base64 text of the n bytes at `in`; returns its size,
/// 4 * ((n + 2) / 3).
std::size_t base64Encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
/// Decodes the complete groups of four among the n characters at `in`
/// (a partial tail is ignored); returns the bytes written, at most
/// 3 * (n / 4). A group holding two "=" or invalid characters gives one
/// byte, one gives two bytes, any other count three.
std::size_t base64Decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out);

/// The kernel sets: plain C++, and x86-64 vector code of two widths.
enum class Kernel { Scalar, Avx2, Avx512 };

/// Makes every later call use `kernel`'s set and returns true; returns false
/// and changes nothing when this build or this CPU cannot run it. For tests
/// and benchmarks that compare the sets; the library never calls it.
bool selectKernel(Kernel kernel);
/// The set the operations use now.
Kernel activeKernel();

}  // namespace codec
}  // namespace KT
