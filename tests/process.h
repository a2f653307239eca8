// The kt program's suites still name the shared helpers by this header and
// namespace; they move to support.h and kttest with their next change.
#pragma once

#include "support.h"

namespace test = kttest;
