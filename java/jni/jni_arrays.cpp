#include "jni/jni_arrays.h"

#include <algorithm>
#include <new>
#include <utility>

#include "jni/jni_exception.h"

namespace tabulo::internal {

namespace {

template <typename Native, typename Array, typename Element>
ErrorCode copyElements(JNIEnv* env, Array array, std::int32_t* count, std::unique_ptr<Native[]>* copy,
                       Element* (JNIEnv::*getElements)(Array, jboolean*),
                       void (JNIEnv::*releaseElements)(Array, Element*, jint)) {
    copy->reset();
    if (array == nullptr) {
        return NO_ERROR;
    }
    const std::int32_t length = env->GetArrayLength(array);
    const std::int32_t wanted = *count < 0 ? length : *count;
    if (wanted > length) {
        return JNI_ERROR;
    }
    std::unique_ptr<Native[]> made(new (std::nothrow) Native[static_cast<std::size_t>(wanted)]);
    if (made == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    Element* elements = (env->*getElements)(array, nullptr);
    if (elements == nullptr) {
        return checkJavaMemory(env);
    }
    std::copy_n(elements, wanted, made.get());
    (env->*releaseElements)(array, elements, JNI_ABORT);
    *count = wanted;
    *copy = std::move(made);
    return NO_ERROR;
}

}  // namespace

ErrorCode intArrayToNative(JNIEnv* env, jintArray array, std::int32_t* count,
                           std::unique_ptr<std::int32_t[]>* copy) noexcept {
    return copyElements(env, array, count, copy, &JNIEnv::GetIntArrayElements, &JNIEnv::ReleaseIntArrayElements);
}

ErrorCode longArrayToNative(JNIEnv* env, jlongArray array, std::int32_t* count,
                            std::unique_ptr<std::int64_t[]>* copy) noexcept {
    return copyElements(env, array, count, copy, &JNIEnv::GetLongArrayElements, &JNIEnv::ReleaseLongArrayElements);
}

ErrorCode doubleArrayToNative(JNIEnv* env, jdoubleArray array, std::int32_t* count,
                              std::unique_ptr<double[]>* copy) noexcept {
    return copyElements(env, array, count, copy, &JNIEnv::GetDoubleArrayElements, &JNIEnv::ReleaseDoubleArrayElements);
}

ErrorCode nativeToByteArray(JNIEnv* env, std::string_view bytes, jbyteArray* made) noexcept {
    const auto length = static_cast<jsize>(bytes.size());
    *made = env->NewByteArray(length);
    if (*made == nullptr) {
        (void)checkJavaException(env);  // JNI_ERROR without one too
        return JNI_ERROR;
    }
    env->SetByteArrayRegion(*made, 0, length, reinterpret_cast<const jbyte*>(bytes.data()));
    return NO_ERROR;
}

jlongArray nativeToLongArray(JNIEnv* env, const void* source, std::int32_t count,
                             std::int64_t (*getter)(const void* source, std::int32_t index)) noexcept {
    if (count < 0) {
        return nullptr;
    }
    jlongArray made = env->NewLongArray(count);
    if (made == nullptr || source == nullptr || count == 0) {
        return made;
    }
    jlong* elements = env->GetLongArrayElements(made, nullptr);
    if (elements == nullptr) {
        env->DeleteLocalRef(made);
        return nullptr;
    }
    for (std::int32_t i = 0; i < count; ++i) {
        elements[i] = getter(source, i);
    }
    // Committing copies back and keeps the buffer: it is given back by a second, aborting release.
    env->ReleaseLongArrayElements(made, elements, JNI_COMMIT);
    env->ReleaseLongArrayElements(made, elements, JNI_ABORT);
    return made;
}

ErrorCode setLongArrayRegion(JNIEnv* env, jlongArray array, std::int32_t count, const std::int64_t* values) noexcept {
    if (array == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (!isArrayRange(env, array, 0, count)) {
        return JNI_ERROR;
    }
    static_assert(sizeof(jlong) == sizeof(std::int64_t));
    env->SetLongArrayRegion(array, 0, count, reinterpret_cast<const jlong*>(values));
    return checkJavaException(env);
}

bool isArrayRange(JNIEnv* env, jarray array, std::int32_t offset, std::int32_t length) noexcept {
    if (array == nullptr) {
        return true;
    }
    return offset >= 0 && length >= 0 && std::int64_t{offset} + length <= env->GetArrayLength(array);
}

}  // namespace tabulo::internal
