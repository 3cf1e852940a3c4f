// Native methods of JNITboMessageTable: opening and closing, reading by id, queries, lookups. writeMessage is in
// message_table_write.cpp. Every method takes the table's handle first; 0 is TABLE_CLOSED_ERROR except where noted.
#include "messagetable/message_table.h"

#include <array>
#include <cstdio>

#include "jni/conditions_reader.h"
#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"
#include "jni/message_batch.h"
#include "jni/on_message_table.h"
#include "jni/table_open.h"
#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"

namespace tabulo::internal {

namespace {

constexpr const char* LISTENER_CLASS = "com/corvane/kestrova/engine/tabulo/IKSVTboMessageListener";

MessageBatch* batchOf(void* owner) {
    return static_cast<MessageBatch*>(owner);
}

// Hands over the last messages. In front of damage there may be none; what comes of this call changes nothing then.
ErrorCode handOverLast(void* owner, ErrorCode code) {
    bool stop = false;
    if (code == NO_ERROR) {
        return messageBatch_handOver(batchOf(owner), &stop);
    }
    if (messageBatch_isHolding(batchOf(owner))) {
        (void)messageBatch_handOver(batchOf(owner), &stop);  // the walk's code is what Java gets
    }
    return code;
}

ErrorCode addMessage(void* owner, const MessageView& message, Visit* answer) {
    bool stop = false;
    const ErrorCode code = messageBatch_add(batchOf(owner), message, 0, &stop);
    *answer = stop ? Visit::stop : Visit::goOn;
    return code;
}

ErrorCode readMessages(JNIEnv* env, MessageTable* table, jintArray connMsgIds, jint count, jobject listener) {
    const MessageBatchPtr batch(messageBatch_create(env, listener, LISTENER_CLASS, BatchKind::plain));
    if (batch == nullptr) {
        return NULL_POINTER_ERROR;
    }
    std::int32_t idCount = count;
    std::unique_ptr<std::int32_t[]> ids;
    const ErrorCode code = intArrayToNative(env, connMsgIds, &idCount, &ids);
    if (code != NO_ERROR || ids == nullptr) {
        return code != NO_ERROR ? code : JNI_ERROR;
    }
    const MessageListener messageListener{batch.get(), addMessage, handOverLast};
    return mt_readMessages(table, ids.get(), idCount, &messageListener, false);
}

// Which code a query that cannot be opened has does not tell why; the exception's detail does. A walk backward begins
// with a look for the table's end, and nothing else but memory can be missing.
void tellWhyNotOpened(MessageTable* table, bool isBackward) {
    const ErrorCode refreshed = isBackward ? mt_refresh(table) : NO_ERROR;
    const ErrorCode cause = refreshed == NO_ERROR ? OUT_OF_MEMORY_ERROR : refreshed;
    std::array<char, 256> sentence{};
    std::snprintf(sentence.data(), sentence.size(), "the query cannot be opened: error %d, %s", cause,
                  getErrorMessage(cause));
    JniCall* call = JniCall::current();
    if (call != nullptr) {
        call->add(sentence.data());
    }
}

ErrorCode openIterator(JNIEnv* env, MessageTable* table, jobject conditionsObject, MessageTableIterator** opened) {
    QueryConditionsPtr conditions(conditions_create());
    if (conditions == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    const ErrorCode code = conditionsReader_read(env, conditionsObject, conditions.get());
    if (code != NO_ERROR) {
        return code;
    }
    if (mt_isDestroyed(table)) {
        return MASTER_INACTIVE_ERROR;  // by one of the getters; nobody would own an iterator over it
    }
    const bool isBackward = conditions->iterateBackward;
    *opened = mtIterator_open(table, conditions.release());
    if (*opened == nullptr) {
        tellWhyNotOpened(table, isBackward);
        return NULL_POINTER_ERROR;
    }
    return NO_ERROR;
}

ErrorCode setHolder(JNIEnv* env, jobject holder, std::int64_t timestamp) {
    jclass holderClass = env->GetObjectClass(holder);
    const jmethodID setValue = env->GetMethodID(holderClass, "setValue", "(J)V");
    env->DeleteLocalRef(holderClass);
    if (setValue != nullptr) {
        env->CallVoidMethod(holder, setValue, static_cast<jlong>(timestamp));
    }
    return checkJavaException(env);
}

}  // namespace

TABULO_JNI(jlong, JNITboMessageTable, initializeNative)(JNIEnv* env, jclass, jobject configProvider, jint mode) {
    return openTable(env, configProvider, mode, mt_create, mt_open, mt_destroy);
}

// A 0 handle is ignored.
TABULO_JNI(void, JNITboMessageTable, uninitializeNative)(JNIEnv*, jclass, jlong handle) {
    mt_destroy(handleTo<MessageTable>(handle));
}

TABULO_JNI(void, JNITboMessageTable, closeNative)(JNIEnv* env, jclass, jlong handle) {
    onMessageTable(env, handle, [](MessageTable* table) { return mt_close(table); });
}

TABULO_JNI(void, JNITboMessageTable, dropNative)(JNIEnv* env, jclass, jlong handle) {
    onMessageTable(env, handle, [](MessageTable* table) { return mt_drop(table); });
}

TABULO_JNI(void, JNITboMessageTable, readMessages)
(JNIEnv* env, jclass, jlong handle, jintArray connMsgIds, jint count, jobject listener) {
    onMessageTable(env, handle,
                   [&](MessageTable* table) { return readMessages(env, table, connMsgIds, count, listener); });
}

TABULO_JNI(jlong, JNITboMessageTable, getMessages)(JNIEnv* env, jclass, jlong handle, jobject conditions) {
    MessageTableIterator* iterator = nullptr;
    onMessageTable(env, handle, [&](MessageTable* table) { return openIterator(env, table, conditions, &iterator); });
    return toHandle(iterator);
}

TABULO_JNI(jint, JNITboMessageTable, getLastMessageId)(JNIEnv* env, jclass, jlong handle, jint classBaseId) {
    std::int32_t id = 0;
    onMessageTable(env, handle, [&](MessageTable* table) { return mt_getLastMessageId(table, classBaseId, &id); });
    return id;
}

TABULO_JNI(jint, JNITboMessageTable, getLastGoodMsgSeqNum)
(JNIEnv* env, jclass, jlong handle, jlong sinceTimestamp, jobject holder) {
    std::int32_t seqNum = 0;
    onMessageTable(env, handle, [&](MessageTable* table) {
        std::int64_t timestamp = 0;
        ErrorCode code = mt_getLastGoodMsgSeqNum(table, sinceTimestamp, &seqNum, &timestamp);
        if (code == NO_ERROR && holder != nullptr && timestamp != 0) {
            code = setHolder(env, holder, timestamp);
        }
        seqNum = code == NO_ERROR ? seqNum : 0;
        return code;
    });
    return seqNum;
}

TABULO_JNI(jint, JNITboMessageTable, getPendingMsgSeqNum)
(JNIEnv* env, jclass, jlong handle, jlong sinceTimestamp, jboolean last) {
    std::int32_t seqNum = 0;
    onMessageTable(env, handle, [&](MessageTable* table) {
        return last != JNI_FALSE ? mt_getLastPendingMsgSeqNum(table, sinceTimestamp, &seqNum)
                                 : mt_getFirstPendingMsgSeqNum(table, sinceTimestamp, &seqNum);
    });
    return seqNum;
}

TABULO_JNI(jint, JNITboMessageTable, getLastUniformMessageId)(JNIEnv* env, jclass, jlong handle) {
    std::int32_t uniformId = 0;
    onMessageTable(env, handle, [&](MessageTable* table) { return mt_getLastUniformMessageId(table, &uniformId); });
    return uniformId;
}

}  // namespace tabulo::internal
