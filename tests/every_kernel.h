// The fixture of the white-box suites that run each test on every kernel
// set this CPU runs, and compare it with the scalar set.
#pragma once

#include <gtest/gtest.h>

#include "simd/kernels.h"

namespace kttest {

/// A test run once per kernel set this CPU runs, the scalar one included;
/// instantiate it with KT_INSTANTIATE_FOR_EVERY_KERNEL.
class EveryKernel : public testing::TestWithParam<const KT::simd::kernels*> {
  protected:
    /// The set under test.
    const KT::simd::kernels& kernels() const { return *GetParam(); }
    /// The reference that every set must match.
    static const KT::simd::kernels& scalar() { return KT::simd::scalar_kernels; }
};

}  // namespace kttest

// Each test is named after its set.
#define KT_INSTANTIATE_FOR_EVERY_KERNEL(suite)                                                  \
    INSTANTIATE_TEST_SUITE_P(Kernels, suite, testing::ValuesIn(KT::simd::supported()),          \
                             [](const testing::TestParamInfo<const KT::simd::kernels*>& info) { \
                                 return std::string(info.param->name);                          \
                             })
