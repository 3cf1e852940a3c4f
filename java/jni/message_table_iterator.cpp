// Native methods of JNITboMessageTableIterator. Every method takes the iterator's handle first; 0 is
// ITERATOR_CLOSED_ERROR. An absent text is null, without an exception.
#include "query/message_table_iterator.h"

#include "jni/jni_exception.h"
#include "jni/jni_strings.h"

namespace tabulo::internal {

namespace {

// Runs an operation on an iterator that returns its result, behind the handle check.
template <typename Result, typename Operation>
Result onIterator(JNIEnv* env, jlong handle, Result neutral, Operation operation) noexcept {
    if (!checkHandle(env, handle, ITERATOR_CLOSED_ERROR)) {
        return neutral;
    }
    return entryPoint(env, neutral, [&] { return operation(handleTo<MessageTableIterator>(handle)); });
}

// The same for an accessor with an error code: the value, or the exception and `neutral`.
template <typename Value>
Value numericField(JNIEnv* env, jlong handle, jint index,
                   ErrorCode (*accessor)(const MessageTableIterator*, std::int32_t, Value*)) noexcept {
    return onIterator(env, handle, Value{}, [&](MessageTableIterator* iterator) {
        Value value{};
        const ErrorCode code = accessor(iterator, index, &value);
        if (code != NO_ERROR) {
            throwTboException(env, code);
        }
        return value;
    });
}

jstring toJavaString(JNIEnv* env, const StringField& field) {
    return field.length <= 0 ? nullptr : nativeToJavaString(env, stringField_withoutNul(field));
}

jbyteArray toByteArray(JNIEnv* env, const StringField& field) {
    if (field.length <= 0) {
        return nullptr;
    }
    const std::string_view bytes = stringField_withoutNul(field);
    const auto length = static_cast<jsize>(bytes.size());
    jbyteArray made = env->NewByteArray(length);
    if (made != nullptr) {
        env->SetByteArrayRegion(made, 0, length, reinterpret_cast<const jbyte*>(bytes.data()));
    }
    return made;
}

jstring textOf(JNIEnv* env, jlong handle, StringField (*accessor)(const MessageTableIterator*)) noexcept {
    return onIterator(env, handle, jstring{},
                      [&](MessageTableIterator* iterator) { return toJavaString(env, accessor(iterator)); });
}

jbyteArray bytesOf(JNIEnv* env, jlong handle, StringField (*accessor)(const MessageTableIterator*)) noexcept {
    return onIterator(env, handle, jbyteArray{},
                      [&](MessageTableIterator* iterator) { return toByteArray(env, accessor(iterator)); });
}

template <typename Result, typename Field>
Result metadataOf(JNIEnv* env, jlong handle, Field MessageMetadata::*field) noexcept {
    return onIterator(env, handle, Result{}, [&](MessageTableIterator* iterator) {
        return static_cast<Result>(mtIterator_getMetadata(iterator).*field);
    });
}

jboolean flagOf(JNIEnv* env, jlong handle, std::uint8_t MessageMetadata::*field) noexcept {
    return metadataOf<std::uint8_t>(env, handle, field) != 0 ? JNI_TRUE : JNI_FALSE;
}

}  // namespace

TABULO_JNI(jboolean, JNITboMessageTableIterator, next)(JNIEnv* env, jclass, jlong handle) {
    return onIterator(env, handle, jboolean{JNI_FALSE}, [&](MessageTableIterator* iterator) {
        bool end = true;
        const ErrorCode code = mtIterator_next(iterator, &end);
        if (code != NO_ERROR) {
            throwTboException(env, code);
        }
        return static_cast<jboolean>(code == NO_ERROR && !end ? JNI_TRUE : JNI_FALSE);
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
    return onIterator(env, handle, jstring{}, [&](MessageTableIterator* iterator) {
        return nativeToJavaString(env, mtIterator_getMetadata(iterator).msgType.data());
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
    return onIterator(env, handle, jstring{}, [&](MessageTableIterator* iterator) {
        StringField text;
        const ErrorCode code = mtIterator_getStringField(iterator, index, &text);
        if (code != NO_ERROR) {
            throwTboException(env, code);
            return jstring{};
        }
        return toJavaString(env, text);
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
