// Native methods of JNITboMessageTableIterator. Every method takes the iterator's handle first; 0 is
// ITERATOR_CLOSED_ERROR. An absent text is null, without an exception.
#include "query/message_table_iterator.h"

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"
#include "jni/jni_strings.h"

namespace tabulo::internal {

namespace {

// Runs an operation on an iterator that returns an error code and puts its result into *result, behind the handle
// check.
template <typename Result, typename Operation>
Result onIterator(JNIEnv* env, jlong handle, Operation operation) noexcept {
    Result result{};
    entryPoint(env, [&]() -> ErrorCode {
        return handle == 0 ? ITERATOR_CLOSED_ERROR : operation(handleTo<MessageTableIterator>(handle), &result);
    });
    return result;
}

template <typename Value>
Value numericField(JNIEnv* env, jlong handle, jint index,
                   ErrorCode (*accessor)(const MessageTableIterator*, std::int32_t, Value*)) noexcept {
    return onIterator<Value>(env, handle, [&](const MessageTableIterator* iterator, Value* value) {
        return accessor(iterator, index, value);
    });
}

ErrorCode toJavaString(JNIEnv* env, const StringField& field, jstring* made) {
    return field.length <= 0 ? NO_ERROR : nativeToJavaString(env, stringField_withoutNul(field), made);
}

using Accessor = StringField (*)(const MessageTableIterator*);

jstring textOf(JNIEnv* env, jlong handle, Accessor accessor) noexcept {
    return onIterator<jstring>(env, handle, [&](const MessageTableIterator* iterator, jstring* text) {
        return toJavaString(env, accessor(iterator), text);
    });
}

jbyteArray bytesOf(JNIEnv* env, jlong handle, Accessor accessor) noexcept {
    return onIterator<jbyteArray>(env, handle, [&](const MessageTableIterator* iterator, jbyteArray* bytes) {
        const StringField field = accessor(iterator);
        return field.length <= 0 ? NO_ERROR : nativeToByteArray(env, stringField_withoutNul(field), bytes);
    });
}

// A number of the metadata: nothing but the handle can be wrong.
template <typename Result, typename Field>
Result metadataOf(JNIEnv* env, jlong handle, Field MessageMetadata::*field) noexcept {
    if (!checkHandle(env, handle, ITERATOR_CLOSED_ERROR)) {
        return Result{};
    }
    return static_cast<Result>(mtIterator_getMetadata(handleTo<MessageTableIterator>(handle)).*field);
}

jboolean flagOf(JNIEnv* env, jlong handle, std::uint8_t MessageMetadata::*field) noexcept {
    return metadataOf<std::uint8_t>(env, handle, field) != 0 ? JNI_TRUE : JNI_FALSE;
}

}  // namespace

TABULO_JNI(jboolean, JNITboMessageTableIterator, next)(JNIEnv* env, jclass, jlong handle) {
    return onIterator<jboolean>(env, handle, [](MessageTableIterator* iterator, jboolean* isCurrent) {
        bool end = true;
        const ErrorCode code = mtIterator_next(iterator, &end);
        *isCurrent = code == NO_ERROR && !end ? JNI_TRUE : JNI_FALSE;
        return code;
    });
}

TABULO_JNI(void, JNITboMessageTableIterator, close)(JNIEnv* env, jclass, jlong handle) {
    if (checkHandle(env, handle, ITERATOR_CLOSED_ERROR)) {
        mtIterator_close(handleTo<MessageTableIterator>(handle));
    }
}

TABULO_JNI(jint, JNITboMessageTableIterator, getConnectionMsgId)(JNIEnv* env, jclass, jlong handle) {
    return metadataOf<jint>(env, handle, &MessageMetadata::connMsgId);
}

TABULO_JNI(jint, JNITboMessageTableIterator, getUniformMessageId)(JNIEnv* env, jclass, jlong handle) {
    return metadataOf<jint>(env, handle, &MessageMetadata::uniformId);
}

TABULO_JNI(jint, JNITboMessageTableIterator, getMsgSeqNum)(JNIEnv* env, jclass, jlong handle) {
    return metadataOf<jint>(env, handle, &MessageMetadata::seqNum);
}

TABULO_JNI(jint, JNITboMessageTableIterator, getPrevSeqNum)(JNIEnv* env, jclass, jlong handle) {
    return metadataOf<jint>(env, handle, &MessageMetadata::prevSeqNum);
}

TABULO_JNI(jlong, JNITboMessageTableIterator, getTimestamp)(JNIEnv* env, jclass, jlong handle) {
    return metadataOf<jlong>(env, handle, &MessageMetadata::timestamp);
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getMsgType)(JNIEnv* env, jclass, jlong handle) {
    return onIterator<jstring>(env, handle, [&](const MessageTableIterator* iterator, jstring* text) {
        return nativeToJavaString(env, mtIterator_getMetadata(iterator).msgType.data(), text);
    });
}

TABULO_JNI(jboolean, JNITboMessageTableIterator, getIsPossDupFlag)(JNIEnv* env, jclass, jlong handle) {
    return flagOf(env, handle, &MessageMetadata::isPossDupFlag);
}

TABULO_JNI(jboolean, JNITboMessageTableIterator, getIsOutOfSequence)(JNIEnv* env, jclass, jlong handle) {
    return flagOf(env, handle, &MessageMetadata::isOutOfSequence);
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getWireMessage)(JNIEnv* env, jclass, jlong handle) {
    return textOf(env, handle, mtIterator_getWireMessage);
}

TABULO_JNI(jbyteArray, JNITboMessageTableIterator, getWireMessageAsByteArray)(JNIEnv* env, jclass, jlong handle) {
    return bytesOf(env, handle, mtIterator_getWireMessage);
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getNonMetadataFields)(JNIEnv* env, jclass, jlong handle) {
    return textOf(env, handle, mtIterator_getNonMetadataFields);
}

TABULO_JNI(jbyteArray, JNITboMessageTableIterator, getNonMetadataFieldsAsByteArray)
(JNIEnv* env, jclass, jlong handle) {
    return bytesOf(env, handle, mtIterator_getNonMetadataFields);
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getStringField)(JNIEnv* env, jclass, jlong handle, jint index) {
    return onIterator<jstring>(env, handle, [&](const MessageTableIterator* iterator, jstring* text) {
        StringField field;
        const ErrorCode code = mtIterator_getStringField(iterator, index, &field);
        return code == NO_ERROR ? toJavaString(env, field, text) : code;
    });
}

TABULO_JNI(jlong, JNITboMessageTableIterator, getNumericFieldAsLong)(JNIEnv* env, jclass, jlong handle, jint index) {
    return numericField<std::int64_t>(env, handle, index, mtIterator_getNumericFieldAsLong);
}

TABULO_JNI(jdouble, JNITboMessageTableIterator, getNumericFieldAsDouble)
(JNIEnv* env, jclass, jlong handle, jint index) {
    return numericField<double>(env, handle, index, mtIterator_getNumericFieldAsDouble);
}

}  // namespace tabulo::internal
