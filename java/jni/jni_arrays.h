// Java arrays of numbers to native copies and back.
#pragma once

#include <jni.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "core/error_codes.h"

namespace tabulo::internal {

// A copy of the first *count elements; a negative *count takes the whole array. *count becomes the number copied. For a
// null array *copy is null and *count stays: there is nothing to copy, which is no error. JNI_ERROR for an array that
// is shorter than *count, or when Java threw (printed and cleared); OUT_OF_MEMORY_ERROR; *copy is null then.
ErrorCode intArrayToNative(JNIEnv* env, jintArray array, std::int32_t* count,
                           std::unique_ptr<std::int32_t[]>* copy) noexcept;
ErrorCode longArrayToNative(JNIEnv* env, jlongArray array, std::int32_t* count,
                            std::unique_ptr<std::int64_t[]>* copy) noexcept;
ErrorCode doubleArrayToNative(JNIEnv* env, jdoubleArray array, std::int32_t* count,
                              std::unique_ptr<double[]>* copy) noexcept;

// A new byte[] (local reference) of some bytes. JNI_ERROR when Java cannot make it (printed and cleared).
ErrorCode nativeToByteArray(JNIEnv* env, std::string_view bytes, jbyteArray* made) noexcept;

// A new long[count] with element i = getter(source, i); all zeros for a null source. Null when it cannot be made (an
// exception may then be pending). No caller of ours: it is the way back of longArrayToNative.
jlongArray nativeToLongArray(JNIEnv* env, const void* source, std::int32_t count,
                             std::int64_t (*getter)(const void* source, std::int32_t index)) noexcept;

// Copies `count` values into the array from index 0. NULL_POINTER_ERROR for a null array; JNI_ERROR for one that is
// shorter (nothing is copied) or when an exception is pending (printed and cleared).
ErrorCode setLongArrayRegion(JNIEnv* env, jlongArray array, std::int32_t count, const std::int64_t* values) noexcept;

// True when offset and length lie inside the array. A null array holds nothing and fits everything.
bool isArrayRange(JNIEnv* env, jarray array, std::int32_t offset, std::int32_t length) noexcept;

}  // namespace tabulo::internal
