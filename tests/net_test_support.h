// The kt program's network suite still names the shared helpers by this
// header; it moves to support.h with its next change.
#pragma once

#include "support.h"
