// Error codes to Java exceptions and back.
#pragma once

#include <jni.h>

#include <cstdint>
#include <new>

#include "core/error_codes.h"
#include "jni/jni_call.h"

namespace tabulo::internal {

// Makes ready what throwTboException falls back on; called once, when the library is loaded. False, with an exception
// pending, when Java cannot make it.
bool jniException_prepare(JNIEnv* env) noexcept;

// Raises JNITboException for an error code: the object that its static createUnderlyingError(code, text) returns, told
// what the call under way knows (setDetail, when its class has that, and initCause). An exception that is pending is
// printed and cleared first, so that the new one replaces it. Raises nothing when the class has no such method, or when
// that returns null. When the object cannot be made for any other reason, for want of memory or stack, what that left
// pending is raised instead, or else the plainest exception that can be made. Keeps no reference. The entry point must
// return to Java at once.
void throwTboException(JNIEnv* env, ErrorCode code) noexcept;

// JNI_ERROR when a Java exception is pending, which is then printed, cleared and kept as the cause of what the call
// under way throws; else NO_ERROR.
[[nodiscard]] ErrorCode checkJavaException(JNIEnv* env) noexcept;

// What a refused request for memory of the virtual machine means: JNI_ERROR when it left an exception, which is dealt
// with as above, else OUT_OF_MEMORY_ERROR.
[[nodiscard]] ErrorCode checkJavaMemory(JNIEnv* env) noexcept;

// True for a non-zero handle; for 0 raises the exception for `code`.
bool checkHandle(JNIEnv* env, jlong handle, ErrorCode code) noexcept;

// Prints a pending exception and leaves it pending (printing alone would clear it).
void describeJavaException(JNIEnv* env) noexcept;

template <typename Object>
Object* handleTo(jlong handle) noexcept {
    return reinterpret_cast<Object*>(static_cast<std::intptr_t>(handle));
}

template <typename Object>
jlong toHandle(Object* object) noexcept {
    return static_cast<jlong>(reinterpret_cast<std::intptr_t>(object));
}

// Runs a body that returns an error code: no C++ exception reaches the virtual machine.
template <typename Body>
ErrorCode guarded(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    } catch (...) {
        return JNI_ERROR;
    }
}

// Runs the body of an entry point, which returns an error code; that becomes an exception unless it is NO_ERROR.
template <typename Body>
void entryPoint(JNIEnv* env, Body body) noexcept {
    const JniCall call(env);
    const ErrorCode code = guarded(body);
    if (code != NO_ERROR) {
        throwTboException(env, code);
    }
}

// Runs one operation of a table behind the handle check: TABLE_CLOSED_ERROR for 0.
template <typename Table, typename Operation>
void onTable(JNIEnv* env, jlong handle, Operation operation) noexcept {
    entryPoint(env,
               [&]() -> ErrorCode { return handle == 0 ? TABLE_CLOSED_ERROR : operation(handleTo<Table>(handle)); });
}

}  // namespace tabulo::internal

// Declares an exported native method of a class of package com.corvane.kestrova.engine.tabulo.jni.
#define TABULO_JNI(Result, Class, Method) \
    extern "C" JNIEXPORT Result JNICALL Java_com_corvane_kestrova_engine_tabulo_jni_##Class##_##Method
