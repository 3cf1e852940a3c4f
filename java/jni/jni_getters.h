// Calls of Java getters by name.
//
// A name may carry the argument part of its signature, as in "getStringFieldValues(I)": the result type is then joined
// to it. Without one, a type that begins with "(" is the whole signature, and any other type gets an empty argument
// list. The class is the object's own.
#pragma once

#include <jni.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "core/error_codes.h"

namespace tabulo::internal {

// A copy of a Java array of numbers; null for a null array.
template <typename Number>
struct ArrayCopy {
    std::unique_ptr<Number[]> elements;
    std::int32_t count = 0;
};

// All return NO_ERROR, or JNI_ERROR when Java threw, also for a method that does not exist (printed and cleared).

// The getter's object result, a local reference; null when it returned null or the object is null.
ErrorCode callObjectGetter(JNIEnv* env, jobject object, const char* name, const char* type, jobject* result,
                           ...) noexcept;

// Getters of boxed values; empty when the getter returned null: the value is not given.
ErrorCode callIntegerGetter(JNIEnv* env, jobject object, const char* name, std::optional<std::int32_t>* value,
                            ...) noexcept;
ErrorCode callLongGetter(JNIEnv* env, jobject object, const char* name, std::optional<std::int64_t>* value,
                         ...) noexcept;
ErrorCode callBooleanGetter(JNIEnv* env, jobject object, const char* name, std::optional<bool>* value, ...) noexcept;
// The same of a Double. No caller of ours: conditions have their doubles in arrays.
ErrorCode callDoubleGetter(JNIEnv* env, jobject object, const char* name, std::optional<double>* value, ...) noexcept;

// Getters of arrays: a copy and its length; null and 0 when the getter returned null. OUT_OF_MEMORY_ERROR when the
// array cannot be copied.
ErrorCode callIntArrayGetter(JNIEnv* env, jobject object, const char* name, ArrayCopy<std::int32_t>* copy,
                             ...) noexcept;
ErrorCode callLongArrayGetter(JNIEnv* env, jobject object, const char* name, ArrayCopy<std::int64_t>* copy,
                              ...) noexcept;
ErrorCode callDoubleArrayGetter(JNIEnv* env, jobject object, const char* name, ArrayCopy<double>* copy, ...) noexcept;

}  // namespace tabulo::internal
