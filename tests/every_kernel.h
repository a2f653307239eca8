// The fixture of the white-box suites that run each test on every kernel
// set this CPU runs, and compare it with the scalar set.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "simd/kernels.h"

namespace kttest {

/// A test run once per kernel set this CPU runs; instantiate it with
/// KT_INSTANTIATE_FOR_EVERY_KERNEL, or over vectorKernels() alone.
class EveryKernel : public testing::TestWithParam<const KT::simd::kernels*> {
  protected:
    /// The set under test.
    const KT::simd::kernels& kernels() const { return *GetParam(); }
    /// The reference that every set must match.
    static const KT::simd::kernels& scalar() { return KT::simd::scalar_kernels; }
};

inline std::string kernelName(const testing::TestParamInfo<const KT::simd::kernels*>& info) {
    return info.param->name;
}

/// Every set this CPU runs but the scalar one.
inline std::vector<const KT::simd::kernels*> vectorKernels() {
    const std::vector<const KT::simd::kernels*>& sets = KT::simd::supported();
    return {sets.begin() + 1, sets.end()};
}

}  // namespace kttest

namespace KT {
namespace simd {
// Names the set in test listings.
inline void PrintTo(const kernels* set, std::ostream* os) { *os << set->name; }
}  // namespace simd
}  // namespace KT

#define KT_INSTANTIATE_FOR_EVERY_KERNEL(suite)                                         \
    INSTANTIATE_TEST_SUITE_P(Kernels, suite, testing::ValuesIn(KT::simd::supported()), \
                             kttest::kernelName)
