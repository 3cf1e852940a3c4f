// Native methods of JNITboMessageWatcher.
#include "watcher/message_watcher.h"

#include <memory>
#include <new>

#include "core/log.h"
#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"
#include "jni/message_batch.h"

namespace tabulo::internal {

namespace {

constexpr const char* WATCHER_CLASS = "com/corvane/kestrova/engine/tabulo/jni/JNITboMessageWatcher";
constexpr const char* START = "JNITboMessageWatcher_startWatching";

ErrorCode createWatcher(JNIEnv* env, jlongArray tableHandles, MessageWatcher** created) {
    std::int32_t count = -1;
    std::unique_ptr<std::int64_t[]> handles;
    const ErrorCode code = longArrayToNative(env, tableHandles, &count, &handles);
    if (code != NO_ERROR || handles == nullptr) {
        return code != NO_ERROR ? code : JNI_ERROR;
    }
    std::vector<MessageTable*> tables;
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int64_t handle = handles[static_cast<std::size_t>(i)];
        if (handle == 0) {
            return TABLE_CLOSED_ERROR;
        }
        tables.push_back(handleTo<MessageTable>(handle));
    }
    *created = messageWatcher_create(tables.data(), count);
    return *created == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

// The starting ids: `count` elements of the Java array.
ErrorCode copyStartingIds(JNIEnv* env, jint count, jintArray ids, std::unique_ptr<jint[]>* copied) {
    if (count >= 0) {
        copied->reset(new (std::nothrow) jint[static_cast<std::size_t>(count)]);
        if (*copied == nullptr) {
            log_debug(START, "cannot allocate %u bytes of memory.\n",
                      static_cast<unsigned>(count) * static_cast<unsigned>(sizeof(jint)));
            return OUT_OF_MEMORY_ERROR;
        }
        if (ids == nullptr && count > 0) {
            return NULL_POINTER_ERROR;
        }
    }
    if (count < 0 || (ids != nullptr && count > env->GetArrayLength(ids))) {
        log_debug(START, "index out of bounds while obtaiting uniformMessageIds from passed array (passed size = %d)\n",
                  count);
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    if (count > 0) {
        env->GetIntArrayRegion(ids, 0, count, copied->get());
    }
    return checkJavaException(env);
}

MessageBatch* batchOf(void* owner) {
    return static_cast<MessageBatch*>(owner);
}

ErrorCode addMessage(void* owner, const MessageView& message, std::int32_t tableIndex, std::int32_t* stop) {
    bool asked = false;
    const ErrorCode code = messageBatch_add(batchOf(owner), message, tableIndex, &asked);
    *stop = asked ? 1 : 0;
    return code;
}

ErrorCode handOver(void* owner, std::int32_t* stop) {
    bool asked = false;
    const ErrorCode code = messageBatch_handOver(batchOf(owner), &asked);
    *stop = asked ? 1 : 0;
    return code;
}

ErrorCode watch(JNIEnv* env, jobject self, jlong handle, jint count, jintArray ids, jboolean compact) {
    const MessageBatchPtr batch(
        messageBatch_create(env, self, WATCHER_CLASS, compact != JNI_FALSE ? BatchKind::compact : BatchKind::plain));
    if (batch == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    messageBatch_tellTables(batch.get());
    std::unique_ptr<jint[]> startingIds;
    const ErrorCode code = copyStartingIds(env, count, ids, &startingIds);
    if (code != NO_ERROR) {
        return code;
    }
    return messageWatcher_startWatching(handleTo<MessageWatcher>(handle), count, startingIds.get(),
                                        {batch.get(), addMessage, handOver});
}

}  // namespace

TABULO_JNI(jlong, JNITboMessageWatcher, initialize)(JNIEnv* env, jclass, jlongArray tableHandles) {
    MessageWatcher* watcher = nullptr;
    entryPoint(env, [&] { return createWatcher(env, tableHandles, &watcher); });
    return toHandle(watcher);
}

// The second argument is the Java watcher: the batches go to its onGetMessages. A 0 handle is NULL_POINTER_ERROR.
TABULO_JNI(jint, JNITboMessageWatcher, startWatching)
(JNIEnv* env, jobject self, jlong handle, jint count, jintArray uniformMessageIds, jboolean compact) {
    ErrorCode result = NO_ERROR;
    entryPoint(env, [&] {
        result = watch(env, self, handle, count, uniformMessageIds, compact);
        return result;
    });
    return result;
}

// A 0 handle is ignored. For a watcher that is watching, on whatever thread, it is the request to stop; the watcher is
// gone when its watch ends.
TABULO_JNI(void, JNITboMessageWatcher, uninitialize)(JNIEnv*, jclass, jlong handle) {
    messageWatcher_destroy(handleTo<MessageWatcher>(handle));
}

}  // namespace tabulo::internal
