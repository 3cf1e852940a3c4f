#include "jni/jni_strings.h"

#include <cstring>
#include <limits>
#include <new>
#include <string>

#include "jni/jni_exception.h"
#include "jni/modified_utf8.h"

namespace tabulo::internal {

jstring newJavaString(JNIEnv* env, std::string_view text) noexcept {
    static_assert(sizeof(jchar) == sizeof(char16_t));
    try {
        const std::u16string decoded = modifiedUtf8_decode(text);
        if (decoded.size() > static_cast<std::size_t>(std::numeric_limits<jsize>::max())) {
            return nullptr;
        }
        return env->NewString(reinterpret_cast<const jchar*>(decoded.data()), static_cast<jsize>(decoded.size()));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

ErrorCode nativeToJavaString(JNIEnv* env, std::string_view text, jstring* made) noexcept {
    *made = newJavaString(env, text);
    return *made == nullptr ? checkJavaMemory(env) : NO_ERROR;
}

ErrorCode javaStringToNative(JNIEnv* env, jstring text, NativeText* copy) noexcept {
    copy->reset();
    if (text == nullptr) {
        return NO_ERROR;
    }
    const char* characters = env->GetStringUTFChars(text, nullptr);
    if (characters == nullptr) {
        return checkJavaMemory(env);
    }
    const std::size_t size = std::strlen(characters) + 1;
    copy->reset(new (std::nothrow) char[size]);
    if (*copy != nullptr) {
        std::memcpy(copy->get(), characters, size);
    }
    env->ReleaseStringUTFChars(text, characters);
    return *copy == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

ErrorCode stringArrayToNative(JNIEnv* env, jobjectArray array, std::int32_t count,
                              std::vector<NativeText>* list) noexcept {
    list->clear();
    if (array == nullptr || count < 0 || count > env->GetArrayLength(array)) {
        return JNI_ERROR;
    }
    try {
        list->resize(static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    for (std::int32_t i = 0; i < count; ++i) {
        auto* element = static_cast<jstring>(env->GetObjectArrayElement(array, i));
        NativeText text;
        const ErrorCode code = javaStringToNative(env, element, &text);
        env->DeleteLocalRef(element);
        if (code != NO_ERROR) {
            list->clear();
            return code;
        }
        (*list)[static_cast<std::size_t>(i)] = std::move(text);
    }
    return NO_ERROR;
}

jobjectArray nativeToStringArray(JNIEnv* env, std::int32_t count, const void* source,
                                 const char* (*getter)(const void* source, std::int32_t index)) noexcept {
    jclass found = env->FindClass("java/lang/String");
    if (found == nullptr) {
        describeJavaException(env);
        return nullptr;
    }
    auto* stringClass = static_cast<jclass>(env->NewGlobalRef(found));
    env->DeleteLocalRef(found);
    jobjectArray made = stringClass == nullptr ? nullptr : env->NewObjectArray(count, stringClass, nullptr);
    for (std::int32_t i = 0; made != nullptr && i < count; ++i) {
        const char* text = getter(source, i);
        jstring element = text == nullptr ? nullptr : newJavaString(env, text);
        if (env->ExceptionCheck() == JNI_FALSE) {
            env->SetObjectArrayElement(made, i, element);
        }
        const bool isMissing = text != nullptr && element == nullptr;
        env->DeleteLocalRef(element);
        if (env->ExceptionCheck() == JNI_TRUE || isMissing) {
            env->DeleteLocalRef(made);
            made = nullptr;
        }
    }
    describeJavaException(env);
    if (stringClass != nullptr) {
        env->DeleteGlobalRef(stringClass);
    }
    return made;
}

ErrorCode forEachStringOfArray(JNIEnv* env, jobjectArray array, void* target,
                               ErrorCode (*add)(void* target, const char* text)) noexcept {
    const jsize count = array == nullptr ? 0 : env->GetArrayLength(array);
    for (jsize i = 0; i < count; ++i) {
        auto* element = static_cast<jstring>(env->GetObjectArrayElement(array, i));
        NativeText text;
        ErrorCode code = javaStringToNative(env, element, &text);
        env->DeleteLocalRef(element);
        if (code == NO_ERROR) {
            code = text == nullptr ? NULL_POINTER_ERROR : add(target, text.get());
        }
        if (code != NO_ERROR) {
            return code;
        }
    }
    return NO_ERROR;
}

}  // namespace tabulo::internal
