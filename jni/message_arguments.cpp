#include "jni/message_arguments.h"

#include <limits>

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"

namespace tabulo {

namespace {

constexpr std::size_t KEPT_BUFFER = 1024 * 1024;  // a buffer that one huge message has grown is given back
constexpr std::int64_t LONGEST_TEXT = std::numeric_limits<std::int32_t>::max() - 1;

std::vector<char>& threadBuffer() {
    thread_local std::vector<char> buffer;
    return buffer;
}

// Makes room for a text of `length` bytes and its NUL as the next slot.
char* appendSlot(StringSlots* slots, std::size_t length) {
    const auto slot = static_cast<std::size_t>(slots->count++);
    slots->offsets[slot] = slots->buffer->size();
    slots->fields[slot].length = static_cast<std::int32_t>(length) + 1;
    slots->buffer->resize(slots->buffer->size() + length + 1);
    char* text = slots->buffer->data() + slots->offsets[slot];
    text[length] = '\0';
    return text;
}

void appendAbsent(StringSlots* slots) {
    slots->fields[static_cast<std::size_t>(slots->count++)] = StringField{};
}

// A value array is used only when it has 1 to 16 elements.
template <typename Array>
std::int32_t usableCount(JNIEnv* env, Array array) {
    const std::int32_t count = array == nullptr ? 0 : env->GetArrayLength(array);
    return count > MAX_NUMERIC_FIELDS ? 0 : count;
}

}  // namespace

MessageMetadata messageMetadata_fromJava(JNIEnv* env, jint uniformId, jint seqNum, jint prevSeqNum, jint connMsgId,
                                         jlong timestamp, jchar msgTypeChar, jstring msgType, jboolean isPossDupFlag,
                                         jboolean isOutOfSequence) noexcept {
    MessageMetadata metadata;
    metadata.uniformId = uniformId;
    metadata.seqNum = seqNum;
    metadata.prevSeqNum = prevSeqNum;
    metadata.connMsgId = connMsgId;
    metadata.timestamp = timestamp;
    metadata.isPossDupFlag = isPossDupFlag != JNI_FALSE ? 1 : 0;
    metadata.isOutOfSequence = isOutOfSequence != JNI_FALSE ? 1 : 0;
    const jsize length = msgType == nullptr ? -1 : env->GetStringUTFLength(msgType);
    if (length >= 0 && length <= MSG_TYPE_LENGTH) {
        std::array<char, MSG_TYPE_LENGTH + 1> text{};
        env->GetStringUTFRegion(msgType, 0, env->GetStringLength(msgType), text.data());
        metadata.msgType = text;
        metadata.msgType[MSG_TYPE_LENGTH] = '\0';
    } else {
        metadata.msgType[0] = static_cast<char>(static_cast<unsigned char>(msgTypeChar & 0xFFU));
    }
    return metadata;
}

StringSlots stringSlots_begin(JNIEnv* env) noexcept {
    StringSlots slots;
    slots.env = env;
    slots.buffer = &threadBuffer();
    if (slots.buffer->capacity() > KEPT_BUFFER) {
        std::vector<char>().swap(*slots.buffer);
    }
    slots.buffer->clear();
    return slots;
}

ErrorCode stringSlots_addString(StringSlots* slots, jstring text) {
    if (text == nullptr) {
        appendAbsent(slots);
        return NO_ERROR;
    }
    const jsize length = slots->env->GetStringUTFLength(text);
    if (length < 0 || length > LONGEST_TEXT) {
        return OUT_OF_MEMORY_ERROR;
    }
    char* bytes = appendSlot(slots, static_cast<std::size_t>(length));
    slots->env->GetStringUTFRegion(text, 0, slots->env->GetStringLength(text), bytes);
    return NO_ERROR;
}

ErrorCode stringSlots_addElements(StringSlots* slots, jobjectArray array, std::int32_t count) {
    ErrorCode code = NO_ERROR;
    for (std::int32_t i = 0; code == NO_ERROR && i < count; ++i) {
        if (array == nullptr) {
            appendAbsent(slots);
            continue;
        }
        auto* element = static_cast<jstring>(slots->env->GetObjectArrayElement(array, i));
        code = stringSlots_addString(slots, element);
        slots->env->DeleteLocalRef(element);
    }
    return code;
}

ErrorCode stringSlots_addBytes(StringSlots* slots, const ByteRange* parts, std::int32_t partCount) {
    bool absent = true;
    std::int64_t total = 0;
    for (std::int32_t i = 0; i < partCount; ++i) {
        if (!isArrayRange(slots->env, parts[i].array, parts[i].offset, parts[i].length)) {
            return JNI_ERROR;
        }
        if (parts[i].array != nullptr) {
            absent = false;
            total += parts[i].length;
        }
    }
    if (absent) {
        appendAbsent(slots);
        return NO_ERROR;
    }
    if (total > LONGEST_TEXT) {
        return OUT_OF_MEMORY_ERROR;
    }
    char* bytes = appendSlot(slots, static_cast<std::size_t>(total));
    for (std::int32_t i = 0; i < partCount; ++i) {
        if (parts[i].array != nullptr) {
            slots->env->GetByteArrayRegion(parts[i].array, parts[i].offset, parts[i].length,
                                           reinterpret_cast<jbyte*>(bytes));
            bytes += parts[i].length;
        }
    }
    return checkJavaException(slots->env);
}

void stringSlots_finish(StringSlots* slots) noexcept {
    for (std::int32_t i = 0; i < slots->count; ++i) {
        const auto slot = static_cast<std::size_t>(i);
        if (slots->fields[slot].length > 0) {
            slots->fields[slot].text = slots->buffer->data() + slots->offsets[slot];
        }
    }
}

ErrorCode numericSlots_fromDoubles(JNIEnv* env, jdoubleArray values, NumericSlots* slots,
                                   std::int32_t* count) noexcept {
    *count = values == nullptr ? 0 : env->GetArrayLength(values);
    if (*count > MAX_NUMERIC_FIELDS) {
        return NUMERIC_FIELDS_LIMIT_ERROR;
    }
    if (*count == 0) {
        return NO_ERROR;
    }
    std::array<jdouble, MAX_NUMERIC_FIELDS> copied{};
    env->GetDoubleArrayRegion(values, 0, *count, copied.data());
    for (std::int32_t i = 0; i < *count; ++i) {
        const auto slot = static_cast<std::size_t>(i);
        (*slots)[slot] = numericValue_ofDouble(copied[slot]);
    }
    return NO_ERROR;
}

ErrorCode numericSlots_fromTypeMap(JNIEnv* env, jintArray typeMap, jlongArray longs, jdoubleArray doubles,
                                   std::int32_t fieldCount, NumericSlots* slots) noexcept {
    const std::int32_t mapCount = typeMap == nullptr ? 0 : env->GetArrayLength(typeMap);
    if (mapCount < fieldCount) {
        return NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (fieldCount == 0) {
        return NO_ERROR;
    }
    const std::int32_t longCount = usableCount(env, longs);
    const std::int32_t doubleCount = usableCount(env, doubles);
    std::array<jint, MAX_NUMERIC_FIELDS> map{};
    std::array<jlong, MAX_NUMERIC_FIELDS> longValues{};
    std::array<jdouble, MAX_NUMERIC_FIELDS> doubleValues{};
    env->GetIntArrayRegion(typeMap, 0, fieldCount, map.data());
    if (longCount > 0) {
        env->GetLongArrayRegion(longs, 0, longCount, longValues.data());
    }
    if (doubleCount > 0) {
        env->GetDoubleArrayRegion(doubles, 0, doubleCount, doubleValues.data());
    }
    for (std::int32_t i = 0; i < fieldCount; ++i) {
        const auto slot = static_cast<std::size_t>(i);
        const std::int64_t type = map[slot];
        const std::int64_t index = type > 0 ? type - 1 : -type - 1;
        if (type != 0 && index >= (type > 0 ? longCount : doubleCount)) {
            return INDEX_OUT_OF_BOUNDS_ERROR;
        }
        if (type > 0) {
            (*slots)[slot] = numericValue_ofLong(longValues[static_cast<std::size_t>(index)]);
        } else if (type < 0) {
            (*slots)[slot] = numericValue_ofDouble(doubleValues[static_cast<std::size_t>(index)]);
        }
    }
    return NO_ERROR;
}

}  // namespace tabulo
