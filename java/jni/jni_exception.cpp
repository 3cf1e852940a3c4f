#include "jni/jni_exception.h"

#include <string>

#include "jni/jni_strings.h"

namespace tabulo::internal {

namespace {

constexpr const char* EXCEPTION_CLASS = "com/corvane/kestrova/engine/tabulo/jni/JNITboException";
constexpr const char* FACTORY_SIGNATURE =
    "(ILjava/lang/String;)Lcom/corvane/kestrova/engine/tabulo/jni/JNITboException;";
constexpr const char* PLAIN_CLASS = "java/lang/RuntimeException";
constexpr const char* KEPT_TEXT = "an operation of the library has failed, and its exception cannot be made";

// Global references of the process: what is needed where nothing can be looked up or made any more. They stay with the
// virtual machine when the library is unloaded.
jclass missingMethodClass = nullptr;  // NoSuchMethodError
jthrowable keptException = nullptr;

// Drops a pending exception that answers a question; it is nobody's failure.
void forgetException(JNIEnv* env) {
    env->ExceptionClear();
}

// True when nothing is pending but that a method is missing, which is then printed and cleared.
bool isMethodMissing(JNIEnv* env) {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) {
        return false;
    }
    env->ExceptionClear();
    const bool isMissing = missingMethodClass == nullptr || env->IsInstanceOf(pending, missingMethodClass) == JNI_TRUE;
    env->Throw(pending);
    env->DeleteLocalRef(pending);
    if (isMissing) {
        env->ExceptionDescribe();
        env->ExceptionClear();
    }
    return isMissing;
}

// Calls a method of an exception with one object, if it has that method; whatever comes of it is dropped.
void tell(JNIEnv* env, jobject exception, const char* name, const char* signature, jobject argument) {
    jclass exceptionClass = env->GetObjectClass(exception);
    const jmethodID method = env->GetMethodID(exceptionClass, name, signature);
    forgetException(env);
    if (method != nullptr) {
        jvalue value{};
        value.l = argument;
        const std::string_view all(signature);
        if (all.back() == 'V') {
            env->CallVoidMethodA(exception, method, &value);
        } else {
            env->DeleteLocalRef(env->CallObjectMethodA(exception, method, &value));
        }
        forgetException(env);
    }
    env->DeleteLocalRef(exceptionClass);
}

// Gives the exception what the call under way knows of its failure, as far as there is memory for it.
void tellAll(JNIEnv* env, jobject exception, const JniCall& call) {
    if (call.cause() != nullptr) {
        tell(env, exception, "initCause", "(Ljava/lang/Throwable;)Ljava/lang/Throwable;", call.cause());
    }
    try {
        const std::string detail = call.detail();
        jstring text = detail.empty() ? nullptr : newJavaString(env, detail);
        forgetException(env);
        if (text != nullptr) {
            tell(env, exception, "setDetail", "(Ljava/lang/String;)V", text);
            env->DeleteLocalRef(text);
        }
    } catch (const std::bad_alloc&) {  // the code and its text are there
    }
}

// The exception for a code; null with what prevented it pending, or with nothing pending. *isSilent says that there is
// none by intention.
jobject createException(JNIEnv* env, ErrorCode code, bool* isSilent) {
    jclass found = env->FindClass(EXCEPTION_CLASS);
    if (found == nullptr) {
        return nullptr;
    }
    const jmethodID factory = env->GetStaticMethodID(found, "createUnderlyingError", FACTORY_SIGNATURE);
    if (factory == nullptr) {
        *isSilent = isMethodMissing(env);
        return nullptr;
    }
    jstring text = env->NewStringUTF(getErrorMessage(code));  // plain ASCII
    if (text == nullptr) {
        return nullptr;
    }
    jobject created = env->CallStaticObjectMethod(found, factory, static_cast<jint>(code), text);
    if (env->ExceptionCheck() == JNI_TRUE) {
        return nullptr;
    }
    *isSilent = created == nullptr;
    env->DeleteLocalRef(text);
    env->DeleteLocalRef(found);
    return created;
}

// Leaves some exception pending, whatever is left of memory and stack.
void throwPlainly(JNIEnv* env, ErrorCode code) {
    if (env->ExceptionCheck() == JNI_TRUE) {
        return;
    }
    jclass plain = env->FindClass(PLAIN_CLASS);
    if (plain != nullptr) {
        env->ThrowNew(plain, getErrorMessage(code));
    }
    if (env->ExceptionCheck() == JNI_FALSE && keptException != nullptr) {
        env->Throw(keptException);
    }
}

}  // namespace

bool jniException_prepare(JNIEnv* env) noexcept {
    if (keptException != nullptr) {
        return true;
    }
    jclass missing = env->FindClass("java/lang/NoSuchMethodError");
    jclass plain = missing == nullptr ? nullptr : env->FindClass(PLAIN_CLASS);
    // Without a stack trace, which would keep the classes on the stack of this very call from being unloaded.
    const jmethodID constructor =
        plain == nullptr ? nullptr : env->GetMethodID(plain, "<init>", "(Ljava/lang/String;Ljava/lang/Throwable;ZZ)V");
    jstring text = constructor == nullptr ? nullptr : env->NewStringUTF(KEPT_TEXT);
    jobject made = text == nullptr ? nullptr : env->NewObject(plain, constructor, text, nullptr, JNI_FALSE, JNI_FALSE);
    if (env->ExceptionCheck() == JNI_TRUE || made == nullptr) {
        return false;
    }
    missingMethodClass = static_cast<jclass>(env->NewGlobalRef(missing));
    keptException = static_cast<jthrowable>(env->NewGlobalRef(made));
    for (jobject local :
         {static_cast<jobject>(missing), static_cast<jobject>(plain), static_cast<jobject>(text), made}) {
        env->DeleteLocalRef(local);
    }
    return true;
}

void throwTboException(JNIEnv* env, ErrorCode code) noexcept {
    (void)checkJavaException(env);  // gives way to the new one
    bool isSilent = false;
    jobject created = createException(env, code, &isSilent);
    if (isSilent) {
        return;
    }
    if (created == nullptr) {
        throwPlainly(env, code);
        return;
    }
    const JniCall* call = JniCall::current();
    if (call != nullptr) {
        tellAll(env, created, *call);
    }
    env->Throw(static_cast<jthrowable>(created));
    env->DeleteLocalRef(created);
}

ErrorCode checkJavaException(JNIEnv* env) noexcept {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) {
        return NO_ERROR;
    }
    env->ExceptionDescribe();
    env->ExceptionClear();
    JniCall* call = JniCall::current();
    if (call != nullptr) {
        call->keepCause(pending);
    }
    env->DeleteLocalRef(pending);
    return JNI_ERROR;
}

ErrorCode checkJavaMemory(JNIEnv* env) noexcept {
    const ErrorCode code = checkJavaException(env);
    return code == NO_ERROR ? OUT_OF_MEMORY_ERROR : code;
}

bool checkHandle(JNIEnv* env, jlong handle, ErrorCode code) noexcept {
    if (handle != 0) {
        return true;
    }
    const JniCall call(env);
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
