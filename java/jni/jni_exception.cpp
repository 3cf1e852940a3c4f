#include "jni/jni_exception.h"

#include "jni/jni_strings.h"

namespace tabulo::internal {

namespace {

constexpr const char* EXCEPTION_CLASS = "com/corvane/kestrova/engine/tabulo/jni/JNITboException";
constexpr const char* FACTORY_SIGNATURE =
    "(ILjava/lang/String;)Lcom/corvane/kestrova/engine/tabulo/jni/JNITboException;";

jobject createException(JNIEnv* env, jclass exceptionClass, ErrorCode code) {
    const jmethodID factory = env->GetStaticMethodID(exceptionClass, "createUnderlyingError", FACTORY_SIGNATURE);
    if (factory == nullptr) {
        return nullptr;
    }
    jstring text = nativeToJavaString(env, getErrorMessage(code));
    if (text == nullptr) {
        return nullptr;
    }
    jobject created = env->CallStaticObjectMethod(exceptionClass, factory, static_cast<jint>(code), text);
    if (checkJavaException(env) != NO_ERROR) {
        created = nullptr;
    }
    env->DeleteLocalRef(text);
    return created;
}

}  // namespace

void throwTboException(JNIEnv* env, ErrorCode code) noexcept {
    (void)checkJavaException(env);  // gives way to the new one
    jclass found = env->FindClass(EXCEPTION_CLASS);
    if (found == nullptr) {
        (void)checkJavaException(env);  // why there is nothing to raise
        return;
    }
    auto* exceptionClass = static_cast<jclass>(env->NewGlobalRef(found));
    env->DeleteLocalRef(found);
    if (exceptionClass == nullptr) {
        (void)checkJavaException(env);  // why there is nothing to raise
        return;
    }
    jobject created = createException(env, exceptionClass, code);
    (void)checkJavaException(env);  // why `created` is null
    env->DeleteGlobalRef(exceptionClass);
    if (created != nullptr) {
        env->Throw(static_cast<jthrowable>(created));
        env->DeleteLocalRef(created);
    }
}

ErrorCode checkJavaException(JNIEnv* env) noexcept {
    if (env->ExceptionCheck() == JNI_FALSE) {
        return NO_ERROR;
    }
    env->ExceptionDescribe();
    env->ExceptionClear();
    return JNI_ERROR;
}

bool checkHandle(JNIEnv* env, jlong handle, ErrorCode code) noexcept {
    if (handle != 0) {
        return true;
    }
    throwTboException(env, code);
    return false;
}

void describeJavaException(JNIEnv* env) noexcept {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) {
        return;
    }
    env->ExceptionDescribe();
    env->ExceptionClear();
    env->Throw(pending);
    env->DeleteLocalRef(pending);
}

}  // namespace tabulo::internal
