// What all fuzz targets share: the check that ends a run, and a log that formats every line and keeps none.
//
// A target defines LLVMFuzzerTestOneInput; harness.cpp sets the log up before the first run.
#pragma once

#include "core/error_codes.h"

namespace tabulo::internal::fuzz {

// Ends the process with the sentence when the condition does not hold: libFuzzer then keeps the input.
void require(bool condition, const char* sentence);
// The same for a code that must be NO_ERROR; its text is printed too.
void requireSuccess(ErrorCode code, const char* what);

}  // namespace tabulo::internal::fuzz
