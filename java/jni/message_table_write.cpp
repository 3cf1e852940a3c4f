// The three writeMessage overloads of JNITboMessageTable. Nothing is written when a check fails.
#include <algorithm>
#include <span>

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"
#include "jni/message_arguments.h"
#include "jni/on_message_table.h"
#include "messagetable/message_table.h"

namespace tabulo::internal {

namespace {

constexpr std::int32_t TOO_MANY_INDEXED_STRINGS = MAX_CONFIGURED_STRING_FIELDS + 1;

struct BuiltInStrings {
    jstring text0;
    jstring text1;
    jstring text2;
    jstring text3;
};

std::span<const StringField> textsOf(const StringSlots& slots) {
    return {slots.fields.data(), static_cast<std::size_t>(slots.count)};
}

ErrorCode writeWithStrings(JNIEnv* env, MessageTable* table, const MessageMetadata& metadata,
                           const BuiltInStrings& builtIn, jobjectArray indexedStrings, jdoubleArray numericValues) {
    NumericSlots numerics{};
    std::int32_t numericCount = 0;
    ErrorCode code = numericSlots_fromDoubles(env, numericValues, &numerics, &numericCount);
    if (code != NO_ERROR) {
        return code;
    }
    const std::int32_t stringCount = indexedStrings == nullptr ? 0 : env->GetArrayLength(indexedStrings);
    if (stringCount >= TOO_MANY_INDEXED_STRINGS) {
        return STRING_FIELDS_LIMIT_ERROR;
    }
    StringSlots slots = stringSlots_begin(env);
    code = stringSlots_addString(&slots, builtIn.text0);
    if (code == NO_ERROR) {
        code = stringSlots_addString(&slots, builtIn.text1);
    }
    if (code == NO_ERROR) {
        code = stringSlots_addElements(&slots, indexedStrings, stringCount);
    }
    if (code == NO_ERROR) {
        code = stringSlots_addString(&slots, builtIn.text2);
    }
    if (code == NO_ERROR) {
        code = stringSlots_addString(&slots, builtIn.text3);
    }
    if (code != NO_ERROR) {
        return code;
    }
    stringSlots_finish(&slots);
    // Fewer values than the table has fields leave the rest absent; more are a mismatch.
    const std::int32_t count = std::max(numericCount, mt_layout(table).numericFieldCount);
    return mt_writeMessage(table, {metadata, textsOf(slots), {numerics.data(), static_cast<std::size_t>(count)}});
}

ErrorCode writeWithBytes(JNIEnv* env, MessageTable* table, const MessageMetadata& metadata, jstring text0,
                         jstring text1, const std::array<ByteRange, 3>& parts, jobjectArray indexedStrings,
                         const NumericSlots& numerics) {
    const MessageTableLayout& layout = mt_layout(table);
    const std::int32_t configured = mtLayout_configuredStringCount(&layout);
    if (indexedStrings != nullptr && env->GetArrayLength(indexedStrings) < configured) {
        return STRING_FIELDS_COUNT_MISMATCH_ERROR;
    }
    StringSlots slots = stringSlots_begin(env);
    ErrorCode code = stringSlots_addString(&slots, text0);
    if (code == NO_ERROR) {
        code = stringSlots_addString(&slots, text1);
    }
    if (code == NO_ERROR) {
        code = stringSlots_addElements(&slots, indexedStrings, configured);
    }
    if (code == NO_ERROR) {
        code = stringSlots_addBytes(&slots, parts.data(), 2);  // the wire message, in two parts
    }
    if (code == NO_ERROR) {
        code = stringSlots_addBytes(&slots, &parts[2], 1);
    }
    if (code != NO_ERROR) {
        return code;
    }
    stringSlots_finish(&slots);
    return mt_writeMessage(
        table, {metadata, textsOf(slots), {numerics.data(), static_cast<std::size_t>(layout.numericFieldCount)}});
}

ErrorCode writeRaw(JNIEnv* env, MessageTable* table, const ByteRange& frame) {
    const char* bytes = nullptr;
    const ErrorCode code = frameBytes_fromJava(env, frame, &bytes);
    return code == NO_ERROR ? mt_writeRawMessage(table, bytes, frame.length) : code;
}

}  // namespace

TABULO_JNI(
    void, JNITboMessageTable,
    writeMessage__JIIIIJCLjava_lang_String_2ZZLjava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2_3Ljava_lang_String_2_3D)
(JNIEnv* env, jclass, jlong handle, jint uniformId, jint seqNum, jint prevSeqNum, jint connMsgId, jlong timestamp,
 jchar msgTypeChar, jstring msgType, jboolean isPossDupFlag, jboolean isOutOfSequence, jstring text0, jstring text1,
 jstring text2, jstring text3, jobjectArray indexedStrings, jdoubleArray numericValues) {
    onMessageTable(env, handle, [&](MessageTable* table) {
        const MessageMetadata metadata =
            messageMetadata_fromJava(env, uniformId, seqNum, prevSeqNum, connMsgId, timestamp, msgTypeChar, msgType,
                                     isPossDupFlag, isOutOfSequence);
        return writeWithStrings(env, table, metadata, {text0, text1, text2, text3}, indexedStrings, numericValues);
    });
}

TABULO_JNI(
    void, JNITboMessageTable,
    writeMessage__JIIIIJCLjava_lang_String_2ZZLjava_lang_String_2Ljava_lang_String_2_3BII_3BII_3BII_3Ljava_lang_String_2_3I_3J_3D)
(JNIEnv* env, jclass, jlong handle, jint uniformId, jint seqNum, jint prevSeqNum, jint connMsgId, jlong timestamp,
 jchar msgTypeChar, jstring msgType, jboolean isPossDupFlag, jboolean isOutOfSequence, jstring text0, jstring text1,
 jbyteArray bytes1, jint offset1, jint length1, jbyteArray bytes2, jint offset2, jint length2, jbyteArray bytes3,
 jint offset3, jint length3, jobjectArray indexedStrings, jintArray typeMap, jlongArray longs, jdoubleArray doubles) {
    onMessageTable(env, handle, [&](MessageTable* table) {
        const MessageMetadata metadata =
            messageMetadata_fromJava(env, uniformId, seqNum, prevSeqNum, connMsgId, timestamp, msgTypeChar, msgType,
                                     isPossDupFlag, isOutOfSequence);
        NumericSlots numerics{};
        const ErrorCode code =
            numericSlots_fromTypeMap(env, typeMap, longs, doubles, mt_layout(table).numericFieldCount, &numerics);
        if (code != NO_ERROR) {
            return code;
        }
        const std::array<ByteRange, 3> parts = {
            {{bytes1, offset1, length1}, {bytes2, offset2, length2}, {bytes3, offset3, length3}}};
        return writeWithBytes(env, table, metadata, text0, text1, parts, indexedStrings, numerics);
    });
}

TABULO_JNI(void, JNITboMessageTable, writeMessage__J_3BII)
(JNIEnv* env, jclass, jlong handle, jbyteArray bytes, jint offset, jint length) {
    onMessageTable(env, handle, [&](MessageTable* table) { return writeRaw(env, table, {bytes, offset, length}); });
}

}  // namespace tabulo::internal
