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

// The getter's object result; JNI_ERROR when it threw.
ErrorCode callGetter(JNIEnv* env, jobject object, const char* name, const char* type, std::va_list arguments,
                     jobject* result) {
    *result = nullptr;
    if (object == nullptr) {
        return NO_ERROR;
    }
    jclass objectClass = env->GetObjectClass(object);
    const jmethodID method = findMethod(env, objectClass, name, type);
    jobject returned = method == nullptr ? nullptr : env->CallObjectMethodV(object, method, arguments);
    env->DeleteLocalRef(objectClass);
    const ErrorCode code = checkJavaException(env);
    if (code == NO_ERROR) {
        *result = returned;
    }
    return code;
}

// How a boxed value is asked for.
template <typename Native, typename Java>
struct Unboxing {
    const char* type;
    const char* method;
    const char* signature;
    Java (JNIEnv::*call)(jobject, jmethodID, ...);
};

constexpr Unboxing<std::int32_t, jint> ofInteger{"Ljava/lang/Integer;", "intValue", "()I", &JNIEnv::CallIntMethod};
constexpr Unboxing<std::int64_t, jlong> ofLong{"Ljava/lang/Long;", "longValue", "()J", &JNIEnv::CallLongMethod};
constexpr Unboxing<double, jdouble> ofDouble{"Ljava/lang/Double;", "doubleValue", "()D", &JNIEnv::CallDoubleMethod};
constexpr Unboxing<bool, jboolean> ofBoolean{"Ljava/lang/Boolean;", "booleanValue", "()Z", &JNIEnv::CallBooleanMethod};

// Calls a getter of a boxed value, and the unboxing method of what it returned.
template <typename Native, typename Java>
ErrorCode callBoxedGetter(JNIEnv* env, jobject object, const char* name, const Unboxing<Native, Java>& unboxing,
                          std::va_list arguments, std::optional<Native>* value) {
    value->reset();
    jobject box = nullptr;
    ErrorCode code = callGetter(env, object, name, unboxing.type, arguments, &box);
    if (code != NO_ERROR || box == nullptr) {
        return code;
    }
    jclass boxClass = env->GetObjectClass(box);
    const jmethodID method = env->GetMethodID(boxClass, unboxing.method, unboxing.signature);
    env->DeleteLocalRef(boxClass);
    const Java unboxed = method == nullptr ? Java{} : (env->*unboxing.call)(box, method);
    env->DeleteLocalRef(box);
    code = checkJavaException(env);
    if (code == NO_ERROR) {
        *value = static_cast<Native>(unboxed);
    }
    return code;
}

// Calls a getter of an array and copies what it returned.
template <typename Native, typename Array>
ErrorCode callArrayGetter(JNIEnv* env, jobject object, const char* name, const char* type, std::va_list arguments,
                          ErrorCode (*toNative)(JNIEnv*, Array, std::int32_t*, std::unique_ptr<Native[]>*),
                          ArrayCopy<Native>* copy) {
    jobject array = nullptr;
    ErrorCode code = callGetter(env, object, name, type, arguments, &array);
    std::int32_t length = -1;
    copy->elements.reset();
    if (code == NO_ERROR) {
        code = toNative(env, static_cast<Array>(array), &length, &copy->elements);
    }
    copy->count = copy->elements == nullptr ? 0 : length;
    env->DeleteLocalRef(array);
    return code;
}

}  // namespace

ErrorCode callObjectGetter(JNIEnv* env, jobject object, const char* name, const char* type, jobject* result,
                           ...) noexcept {
    std::va_list arguments;
    va_start(arguments, result);
    const ErrorCode code = callGetter(env, object, name, type, arguments, result);
    va_end(arguments);
    return code;
}

ErrorCode callIntegerGetter(JNIEnv* env, jobject object, const char* name, std::optional<std::int32_t>* value,
                            ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    const ErrorCode code = callBoxedGetter(env, object, name, ofInteger, arguments, value);
    va_end(arguments);
    return code;
}

ErrorCode callLongGetter(JNIEnv* env, jobject object, const char* name, std::optional<std::int64_t>* value,
                         ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    const ErrorCode code = callBoxedGetter(env, object, name, ofLong, arguments, value);
    va_end(arguments);
    return code;
}

ErrorCode callDoubleGetter(JNIEnv* env, jobject object, const char* name, std::optional<double>* value, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    const ErrorCode code = callBoxedGetter(env, object, name, ofDouble, arguments, value);
    va_end(arguments);
    return code;
}

ErrorCode callBooleanGetter(JNIEnv* env, jobject object, const char* name, std::optional<bool>* value, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, value);
    const ErrorCode code = callBoxedGetter(env, object, name, ofBoolean, arguments, value);
    va_end(arguments);
    return code;
}

ErrorCode callIntArrayGetter(JNIEnv* env, jobject object, const char* name, ArrayCopy<std::int32_t>* copy,
                             ...) noexcept {
    std::va_list arguments;
    va_start(arguments, copy);
    const ErrorCode code = callArrayGetter(env, object, name, "[I", arguments, intArrayToNative, copy);
    va_end(arguments);
    return code;
}

ErrorCode callLongArrayGetter(JNIEnv* env, jobject object, const char* name, ArrayCopy<std::int64_t>* copy,
                              ...) noexcept {
    std::va_list arguments;
    va_start(arguments, copy);
    const ErrorCode code = callArrayGetter(env, object, name, "[J", arguments, longArrayToNative, copy);
    va_end(arguments);
    return code;
}

ErrorCode callDoubleArrayGetter(JNIEnv* env, jobject object, const char* name, ArrayCopy<double>* copy, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, copy);
    const ErrorCode code = callArrayGetter(env, object, name, "[D", arguments, doubleArrayToNative, copy);
    va_end(arguments);
    return code;
}

}  // namespace tabulo::internal
