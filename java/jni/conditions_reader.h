// A Java conditions object to the conditions of a query.
#pragma once

#include <jni.h>

#include "core/error_codes.h"
#include "query/query_conditions.h"

namespace tabulo::internal {

// Reads the getters of any object that has them, in a fixed order, into a record that the caller keeps. A getter that
// returns null says that its condition is not given. JNI_ERROR as soon as one throws or is missing (the exception is
// printed and cleared; no further getter is called); NULL_POINTER_ERROR for a null object, and for a null in the values
// of a string filter or in the excluded types; WRONG_PARAMETER_ERROR when the two arrays of a filter's ranges have
// different lengths; NOT_IMPLEMENTED_ERROR for a numeric filter whose values are neither doubles (1) nor longs (2);
// OUT_OF_MEMORY_ERROR.
ErrorCode conditionsReader_read(JNIEnv* env, jobject object, QueryConditions* conditions) noexcept;

}  // namespace tabulo::internal
