// Error codes to Java exceptions and back.
#pragma once

#include <jni.h>

#include <cstdint>
#include <new>

#include "core/error_codes.h"

namespace tabulo::internal {

// Raises JNITboException for an error code: the object that its static createUnderlyingError(code, text) returns. An
// exception that is pending is printed and cleared first, so that the new one replaces it. Raises nothing when the
// class or its method is missing, or when that returns null. Keeps no reference. The entry point must return to Java at
// once.
void throwTboException(JNIEnv* env, ErrorCode code) noexcept;

// JNI_ERROR when a Java exception is pending, which is then printed and cleared; else NO_ERROR.
ErrorCode checkJavaException(JNIEnv* env) noexcept;

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

// Runs the body of an entry point that returns a value: no C++ exception reaches the virtual machine. `neutral` is what
// Java gets beside an exception.
template <typename Result, typename Body>
Result entryPoint(JNIEnv* env, Result neutral, Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        throwTboException(env, OUT_OF_MEMORY_ERROR);
    } catch (...) {
        throwTboException(env, JNI_ERROR);
    }
    return neutral;
}

// The same for one whose body returns an error code, which becomes an exception unless it is NO_ERROR.
template <typename Body>
void entryPoint(JNIEnv* env, Body body) noexcept {
    const ErrorCode code = entryPoint(env, NO_ERROR, body);
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
