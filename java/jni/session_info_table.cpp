// Native methods of JNITboSessionInfoTable. Every method takes the table's handle first; 0 is TABLE_CLOSED_ERROR except
// where noted.
#include "sessioninfo/session_info_table.h"

#include <array>

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"
#include "jni/table_open.h"

namespace tabulo {

namespace {

ErrorCode writeFields(JNIEnv* env, SessionInfoTable* table, jint count, jintArray tags, jlongArray values) {
    std::int32_t tagCount = count;
    const auto nativeTags = intArrayToNative(env, tags, &tagCount);
    std::int32_t valueCount = tagCount;
    const auto nativeValues = nativeTags == nullptr ? nullptr : longArrayToNative(env, values, &valueCount);
    if (nativeValues == nullptr) {
        checkJavaException(env);
        return JNI_ERROR;
    }
    return si_write(table, tagCount, nativeTags.get(), nativeValues.get());
}

ErrorCode readFields(JNIEnv* env, SessionInfoTable* table, jint count, jintArray tags, jlongArray values) {
    std::int32_t tagCount = count;
    const auto nativeTags = intArrayToNative(env, tags, &tagCount);
    if (nativeTags == nullptr) {
        checkJavaException(env);
        return JNI_ERROR;
    }
    if (tagCount > MAX_SESSION_INFO_TAGS) {
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    std::array<std::int64_t, MAX_SESSION_INFO_TAGS> read{};
    const ErrorCode code = si_read(table, tagCount, nativeTags.get(), read.data());
    return code == NO_ERROR ? setLongArrayRegion(env, values, tagCount, read.data()) : code;
}

}  // namespace

}  // namespace tabulo

using tabulo::SessionInfoTable;

TABULO_JNI(jlong, JNITboSessionInfoTable, initializeNative)(JNIEnv* env, jclass, jobject configProvider, jint mode) {
    return tabulo::openTable(env, configProvider, mode, tabulo::si_create, tabulo::si_init, tabulo::si_destroy);
}

// A 0 handle is ignored.
TABULO_JNI(void, JNITboSessionInfoTable, uninitializeNative)(JNIEnv*, jclass, jlong handle) {
    tabulo::si_destroy(tabulo::handleTo<SessionInfoTable>(handle));
}

TABULO_JNI(void, JNITboSessionInfoTable, dropNative)(JNIEnv* env, jclass, jlong handle) {
    tabulo::onTable<SessionInfoTable>(env, handle, [](SessionInfoTable* table) { return tabulo::si_drop(table); });
}

TABULO_JNI(void, JNITboSessionInfoTable, writeFieldsNative)
(JNIEnv* env, jclass, jlong handle, jint count, jintArray tags, jlongArray values) {
    tabulo::onTable<SessionInfoTable>(
        env, handle, [&](SessionInfoTable* table) { return tabulo::writeFields(env, table, count, tags, values); });
}

TABULO_JNI(void, JNITboSessionInfoTable, readFieldsNative)
(JNIEnv* env, jclass, jlong handle, jint count, jintArray tags, jlongArray values) {
    tabulo::onTable<SessionInfoTable>(
        env, handle, [&](SessionInfoTable* table) { return tabulo::readFields(env, table, count, tags, values); });
}
