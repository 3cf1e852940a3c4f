// Calls of Java getters by name.
//
// A name may carry the argument part of its signature, as in "getStringFieldValues(I)": the result type is then joined
// to it. Without one, a type that begins with "(" is the whole signature, and any other type gets an empty argument
// list. The class is the object's own. No getter is called while an exception is pending.
#pragma once

#include <jni.h>

#include <cstdint>
#include <memory>

namespace tabulo::internal {

// The getter's object result, a local reference. Null when it returned null, the object is null, or a Java exception is
// pending (also for a method that does not exist): callers test with checkJavaException.
jobject callObjectGetter(JNIEnv* env, jobject object, const char* name, const char* type, ...) noexcept;

// Getters of boxed values: 1 and the value when the getter returned an object; 0, value untouched, when it returned
// null (the value is not given) or a Java exception is pending.
int callIntegerGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* value, ...) noexcept;
int callLongGetter(JNIEnv* env, jobject object, const char* name, std::int64_t* value, ...) noexcept;
int callBooleanGetter(JNIEnv* env, jobject object, const char* name, bool* value, ...) noexcept;
// The same of a Double. No caller of ours: conditions have their doubles in arrays.
int callDoubleGetter(JNIEnv* env, jobject object, const char* name, double* value, ...) noexcept;

// Getters of arrays: a copy and its length; null, *count 0, when the getter returned null, or with a Java exception
// pending, or when memory is short.
std::unique_ptr<std::int32_t[]> callIntArrayGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* count,
                                                   ...) noexcept;
std::unique_ptr<std::int64_t[]> callLongArrayGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* count,
                                                    ...) noexcept;
std::unique_ptr<double[]> callDoubleArrayGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* count,
                                                ...) noexcept;

}  // namespace tabulo::internal
