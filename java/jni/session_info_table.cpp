// Native methods of JNITboSessionInfoTable. Every method takes the table's handle first; 0 is TABLE_CLOSED_ERROR except
// where noted.
#include "sessioninfo/session_info_table.h"

#include <array>

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"
#include "jni/table_open.h"

namespace tabulo::internal {

namespace {

// The innermost use of a table on this thread, and those around it: a logger that is called meanwhile may destroy the
// table, whose memory then stays until the outermost use of it ends.
struct SessionUse {
    SessionInfoTable* table;
    SessionUse* outer;
    bool destroyRequested = false;
};

thread_local SessionUse* innermostUse = nullptr;

SessionUse* findUse(SessionUse* from, const SessionInfoTable* table) {
    while (from != nullptr && from->table != table) {
        from = from->outer;
    }
    return from;
}

// Runs an operation of a table behind the handle check.
template <typename Operation>
void onSessionTable(JNIEnv* env, jlong handle, Operation operation) noexcept {
    onTable<SessionInfoTable>(env, handle, [&](SessionInfoTable* table) {
        SessionUse use{table, innermostUse};
        innermostUse = &use;
        const ErrorCode code = guarded([&] { return operation(table); });
        innermostUse = use.outer;
        if (use.destroyRequested) {
            SessionUse* around = findUse(innermostUse, table);
            if (around != nullptr) {
                around->destroyRequested = true;
            } else {
                si_destroy(table);
            }
        }
        return code;
    });
}

// The first *count tags, or all of them for a negative *count. Whatever prevents it is JNI_ERROR.
std::unique_ptr<std::int32_t[]> tagsOf(JNIEnv* env, jintArray tags, std::int32_t* count) {
    std::unique_ptr<std::int32_t[]> copy;
    (void)intArrayToNative(env, tags, count, &copy);  // null is all that matters
    return copy;
}

ErrorCode writeFields(JNIEnv* env, SessionInfoTable* table, jint count, jintArray tags, jlongArray values) {
    std::int32_t tagCount = count;
    const auto nativeTags = tagsOf(env, tags, &tagCount);
    std::int32_t valueCount = tagCount;
    std::unique_ptr<std::int64_t[]> nativeValues;
    if (nativeTags != nullptr) {
        (void)longArrayToNative(env, values, &valueCount, &nativeValues);  // null is all that matters
    }
    if (nativeValues == nullptr) {
        return JNI_ERROR;
    }
    return si_write(table, tagCount, nativeTags.get(), nativeValues.get());
}

ErrorCode readFields(JNIEnv* env, SessionInfoTable* table, jint count, jintArray tags, jlongArray values) {
    std::int32_t tagCount = count;
    const auto nativeTags = tagsOf(env, tags, &tagCount);
    if (nativeTags == nullptr) {
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

TABULO_JNI(jlong, JNITboSessionInfoTable, initializeNative)(JNIEnv* env, jclass, jobject configProvider, jint mode) {
    return openTable(env, configProvider, mode, si_create, si_init, si_destroy);
}

// A 0 handle is ignored.
TABULO_JNI(void, JNITboSessionInfoTable, uninitializeNative)(JNIEnv*, jclass, jlong handle) {
    auto* table = handleTo<SessionInfoTable>(handle);
    SessionUse* use = findUse(innermostUse, table);
    if (table != nullptr && use != nullptr) {
        use->destroyRequested = true;
    } else {
        si_destroy(table);
    }
}

TABULO_JNI(void, JNITboSessionInfoTable, dropNative)(JNIEnv* env, jclass, jlong handle) {
    onSessionTable(env, handle, [](SessionInfoTable* table) { return si_drop(table); });
}

TABULO_JNI(void, JNITboSessionInfoTable, writeFieldsNative)
(JNIEnv* env, jclass, jlong handle, jint count, jintArray tags, jlongArray values) {
    onSessionTable(env, handle, [&](SessionInfoTable* table) { return writeFields(env, table, count, tags, values); });
}

TABULO_JNI(void, JNITboSessionInfoTable, readFieldsNative)
(JNIEnv* env, jclass, jlong handle, jint count, jintArray tags, jlongArray values) {
    onSessionTable(env, handle, [&](SessionInfoTable* table) { return readFields(env, table, count, tags, values); });
}

}  // namespace tabulo::internal
