// The fixture of the white-box suites that run each test on every kernel
// set this CPU runs, and compare it with the scalar set.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "simd/kernels.h"

namespace kttest {

/// A test run once per kernel set this CPU runs; instantiate it with
/// KT_INSTANTIATE_FOR_EVERY_KERNEL.
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

}  // namespace kttest

#define KT_INSTANTIATE_FOR_EVERY_KERNEL(suite)                                         \
    INSTANTIATE_TEST_SUITE_P(Kernels, suite, testing::ValuesIn(KT::simd::supported()), \
                             kttest::kernelName)
