// Java strings and string arrays to native texts and back.
#pragma once

#include <jni.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/error_codes.h"

namespace tabulo::internal {

using NativeText = std::unique_ptr<char[]>;

// A new Java string (local reference) of a text. Null with a Java exception pending, or when memory is short.
// jni/modified_utf8.h tells how bytes become characters.
jstring newJavaString(JNIEnv* env, std::string_view text) noexcept;
// The same as a result: JNI_ERROR when Java threw (printed and cleared), OUT_OF_MEMORY_ERROR; *made is null then.
ErrorCode nativeToJavaString(JNIEnv* env, std::string_view text, jstring* made) noexcept;

// A copy of the string's modified UTF-8 bytes, NUL-terminated; null for a null string. JNI_ERROR when Java threw
// (printed and cleared), OUT_OF_MEMORY_ERROR; *copy is null then.
ErrorCode javaStringToNative(JNIEnv* env, jstring text, NativeText* copy) noexcept;

// Copies elements 0 .. count-1; a null element gives a null text. JNI_ERROR when the array is null or shorter, or an
// exception is pending (it is printed and cleared); OUT_OF_MEMORY_ERROR. The list is then empty.
ErrorCode stringArrayToNative(JNIEnv* env, jobjectArray array, std::int32_t count,
                              std::vector<NativeText>* list) noexcept;

// A new String[count] with element i made of getter(source, i); null with a Java exception pending, which has been
// printed, or when memory is short. No caller of ours: it is the way back of stringArrayToNative.
jobjectArray nativeToStringArray(JNIEnv* env, std::int32_t count, const void* source,
                                 const char* (*getter)(const void* source, std::int32_t index)) noexcept;

// Calls add(target, text) for each element and returns the first non-zero result. NULL_POINTER_ERROR for a null
// element, JNI_ERROR when Java threw (printed and cleared), OUT_OF_MEMORY_ERROR. A null array is an empty list.
ErrorCode forEachStringOfArray(JNIEnv* env, jobjectArray array, void* target,
                               ErrorCode (*add)(void* target, const char* text)) noexcept;

}  // namespace tabulo::internal
