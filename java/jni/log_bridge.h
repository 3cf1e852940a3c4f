// Carries the diagnostic log's lines to the host's Java loggers.
#pragma once

#include <jni.h>

#include "core/error_codes.h"
#include "core/log.h"

namespace tabulo::internal {

// Builds a log facility over a com/corvane/util/log/ILogFacility object: one adapter each for its debug, info, warning
// and error logger, which are kept by global references until the facility is released. NULL_POINTER_ERROR for a null
// object; JNI_ERROR when it is of another class, a level is missing or its logger is null (a pending exception is
// printed and cleared); OUT_OF_MEMORY_ERROR. Nothing stays behind on failure.
//
// A line is delivered on the thread that logs, as write(2, text); a thread that is not attached drops it. Lines are cut
// to 2047 bytes. An exception that was pending is put aside and back, one that the logger throws is cleared.
ErrorCode logBridge_create(JNIEnv* env, jobject facilityObject, LogFacility** facility) noexcept;

}  // namespace tabulo::internal
