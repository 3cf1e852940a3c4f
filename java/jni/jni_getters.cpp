#include "jni/jni_getters.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"

namespace tabulo::internal {

namespace {

// Names and types are this library's own and short.
constexpr std::size_t LONGEST_SIGNATURE = 256;

jmethodID findMethod(JNIEnv* env, jclass objectClass, const char* name, const char* type) {
    std::array<char, LONGEST_SIGNATURE> method{};
    std::array<char, LONGEST_SIGNATURE> signature{};
    const std::size_t nameLength = std::strcspn(name, "(");
    std::snprintf(method.data(), method.size(), "%.*s", static_cast<int>(nameLength), name);
    if (name[nameLength] == '(') {
        std::snprintf(signature.data(), signature.size(), "%s%s", name + nameLength, type);
    } else {
        std::snprintf(signature.data(), signature.size(), "%s%s", type[0] == '(' ? "" : "()", type);
    }
    return env->GetMethodID(objectClass, method.data(), signature.data());
}

jobject callGetter(JNIEnv* env, jobject object, const char* name, const char* type, std::va_list arguments) {
    if (object == nullptr || env->ExceptionCheck() == JNI_TRUE) {
        return nullptr;
    }
    jclass objectClass = env->GetObjectClass(object);
    const jmethodID method = findMethod(env, objectClass, name, type);
    jobject result = method == nullptr ? nullptr : env->CallObjectMethodV(object, method, arguments);
    env->DeleteLocalRef(objectClass);
    if (env->ExceptionCheck() == JNI_TRUE) {
        return nullptr;
    }
    return result;
}

// Calls the unboxing method of a boxed value and drops the box. False when there is none or an exception is pending.
template <typename Call>
int unbox(JNIEnv* env, jobject box, const char* method, const char* signature, Call call) {
    if (box == nullptr) {
        return 0;
    }
    jclass boxClass = env->GetObjectClass(box);
    const jmethodID unboxing = env->GetMethodID(boxClass, method, signature);
    env->DeleteLocalRef(boxClass);
    if (unboxing != nullptr) {
        call(unboxing);
    }
    env->DeleteLocalRef(box);
    return env->ExceptionCheck() == JNI_TRUE ? 0 : 1;
}

// A copy of the array that a getter returned, which is dropped.
template <typename Native, typename Array>
std::unique_ptr<Native[]> copyResult(JNIEnv* env, Array array, std::int32_t* count,
                                     std::unique_ptr<Native[]> (*toNative)(JNIEnv*, Array, std::int32_t*)) {
    std::int32_t length = -1;
    auto copy = array == nullptr ? nullptr : toNative(env, array, &length);
    *count = copy == nullptr ? 0 : length;
    env->DeleteLocalRef(array);
    return copy;
}

}  // namespace

jobject callObjectGetter(JNIEnv* env, jobject object, const char* name, const char* type, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, type);
    jobject result = callGetter(env, object, name, type, arguments);
    va_end(arguments);
    return result;
}

int callIntegerGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* value, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    jobject box = callGetter(env, object, name, "Ljava/lang/Integer;", arguments);
    va_end(arguments);
    return unbox(env, box, "intValue", "()I", [&](jmethodID method) { *value = env->CallIntMethod(box, method); });
}

int callLongGetter(JNIEnv* env, jobject object, const char* name, std::int64_t* value, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    jobject box = callGetter(env, object, name, "Ljava/lang/Long;", arguments);
    va_end(arguments);
    return unbox(env, box, "longValue", "()J", [&](jmethodID method) { *value = env->CallLongMethod(box, method); });
}

int callDoubleGetter(JNIEnv* env, jobject object, const char* name, double* value, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    jobject box = callGetter(env, object, name, "Ljava/lang/Double;", arguments);
    va_end(arguments);
    return unbox(env, box, "doubleValue", "()D",
                 [&](jmethodID method) { *value = env->CallDoubleMethod(box, method); });
}

int callBooleanGetter(JNIEnv* env, jobject object, const char* name, bool* value, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    jobject box = callGetter(env, object, name, "Ljava/lang/Boolean;", arguments);
    va_end(arguments);
    return unbox(env, box, "booleanValue", "()Z",
                 [&](jmethodID method) { *value = env->CallBooleanMethod(box, method) != JNI_FALSE; });
}

std::unique_ptr<std::int32_t[]> callIntArrayGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* count,
                                                   ...) noexcept {
    std::va_list arguments;
    va_start(arguments, count);
    auto* array = static_cast<jintArray>(callGetter(env, object, name, "[I", arguments));
    va_end(arguments);
    return copyResult(env, array, count, intArrayToNative);
}

std::unique_ptr<std::int64_t[]> callLongArrayGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* count,
                                                    ...) noexcept {
    std::va_list arguments;
    va_start(arguments, count);
    auto* array = static_cast<jlongArray>(callGetter(env, object, name, "[J", arguments));
    va_end(arguments);
    return copyResult(env, array, count, longArrayToNative);
}

std::unique_ptr<double[]> callDoubleArrayGetter(JNIEnv* env, jobject object, const char* name, std::int32_t* count,
                                                ...) noexcept {
    std::va_list arguments;
    va_start(arguments, count);
    auto* array = static_cast<jdoubleArray>(callGetter(env, object, name, "[D", arguments));
    va_end(arguments);
    return copyResult(env, array, count, doubleArrayToNative);
}

}  // namespace tabulo::internal
