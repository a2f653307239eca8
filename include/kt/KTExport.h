/// \file kt/KTExport.h - the mark of what libkt exports.
#pragma once

/// libkt is compiled with hidden visibility, so only declarations that carry
/// KT_API become part of its binary interface; helpers and test seams stay
/// inside. The mark is the same for the library and its users.
#define KT_API __attribute__((visibility("default")))
