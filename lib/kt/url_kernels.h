// The way from the URL functions to the vector kernels: the delimiter model
// and the kernels in use.
#pragma once

#include "simd/kernels.h"
#include "url_delimiters.h"

namespace ktbase {
namespace url_detail {

/// The kernels in use (see KT::simd::active()).
inline const KT::simd::kernels& active_kernels() { return KT::simd::active(); }

}  // namespace url_detail
}  // namespace ktbase
