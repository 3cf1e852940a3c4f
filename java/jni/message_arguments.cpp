#include "jni/message_arguments.h"

#include <algorithm>
#include <limits>

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"

namespace tabulo::internal {

namespace {

constexpr std::size_t KEPT_BUFFER = std::size_t{1024} * 1024;
constexpr jsize ASCII_PIECE = 1024;
constexpr std::int64_t LONGEST_TEXT = std::numeric_limits<std::int32_t>::max() - 1;

// The calling thread's buffer; what one huge message has made of it is given back by the next one.
std::vector<char>& threadBuffer() {
    thread_local std::vector<char> buffer;
    if (buffer.capacity() > KEPT_BUFFER) {
        std::vector<char>().swap(buffer);
    }
    return buffer;
}

// Makes room for a text of `length` bytes and its NUL behind the slots that are there.
char* roomFor(StringSlots* slots, std::size_t length) {
    const std::size_t needed = slots->used + length + 1;
    if (needed > slots->buffer->size()) {
        slots->buffer->resize(std::max(needed, 2 * slots->buffer->size()));
    }
    return slots->buffer->data() + slots->used;
}

// Makes a slot of the `length` bytes that stand where roomFor has told.
void appendSlot(StringSlots* slots, std::size_t length) {
    const auto slot = static_cast<std::size_t>(slots->count++);
    slots->offsets[slot] = slots->used;
    slots->fields[slot].length = static_cast<std::int32_t>(length) + 1;
    slots->used += length + 1;
    (*slots->buffer)[slots->used - 1] = '\0';
}

// Copies a string whose characters are one byte each in modified UTF-8, which takes the virtual machine less time than
// its own conversion; false for any other string, of which `bytes` then hold a part.
bool copyAscii(JNIEnv* env, jstring text, jsize length, char* bytes) {
    std::array<jchar, ASCII_PIECE> piece;  // not initialised: it is filled before it is read
    jsize count = 0;
    for (jsize begin = 0; begin < length; begin += count) {
        count = std::min(length - begin, ASCII_PIECE);
        env->GetStringRegion(text, begin, count, piece.data());
        jchar seen = 0;  // the bits of all characters, and of what is one below each: of a NUL, every bit
        for (jsize i = 0; i < count; ++i) {
            const jchar character = piece[static_cast<std::size_t>(i)];
            seen = static_cast<jchar>(seen | character | (character - 1));
            bytes[begin + i] = static_cast<char>(character);
        }
        if (seen > 0x7F) {
            return false;
        }
    }
    return true;
}

void appendAbsent(StringSlots* slots) {
    slots->fields[static_cast<std::size_t>(slots->count++)] = StringField{};
}

using MsgType = decltype(MessageMetadata::msgType);

// The MsgType of a string of at most 5 bytes; false for a longer one.
bool readMsgType(JNIEnv* env, jstring text, MsgType* msgType) {
    const jsize length = env->GetStringLength(text);
    if (length > MSG_TYPE_LENGTH) {
        return false;  // no character has less than one byte
    }
    MsgType read{};
    if (!copyAscii(env, text, length, read.data())) {
        if (env->GetStringUTFLength(text) > MSG_TYPE_LENGTH) {
            return false;
        }
        env->GetStringUTFRegion(text, 0, length, read.data());
        read[MSG_TYPE_LENGTH] = '\0';
    }
    *msgType = read;
    return true;
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
    if (msgType == nullptr || !readMsgType(env, msgType, &metadata.msgType)) {
        metadata.msgType[0] = static_cast<char>(static_cast<unsigned char>(msgTypeChar & 0xFFU));
    }
    return metadata;
}

ErrorCode frameBytes_fromJava(JNIEnv* env, const ByteRange& range, const char** bytes) {
    if (range.array == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (!isArrayRange(env, range.array, range.offset, range.length)) {
        return JNI_ERROR;
    }
    std::vector<char>& buffer = threadBuffer();
    const auto length = static_cast<std::size_t>(range.length);
    if (buffer.size() <= length) {  // never empty: a null buffer is an error to who takes it
        buffer.resize(std::max(length + 1, 2 * buffer.size()));
    }
    env->GetByteArrayRegion(range.array, range.offset, range.length, reinterpret_cast<jbyte*>(buffer.data()));
    *bytes = buffer.data();
    return NO_ERROR;  // the range lies in its array: nothing can have been thrown
}

StringSlots stringSlots_begin(JNIEnv* env) noexcept {
    StringSlots slots;
    slots.env = env;
    slots.buffer = &threadBuffer();
    return slots;
}

ErrorCode stringSlots_addString(StringSlots* slots, jstring text) {
    if (text == nullptr) {
        appendAbsent(slots);
        return NO_ERROR;
    }
    const jsize characters = slots->env->GetStringLength(text);
    jsize length = characters;
    if (length > LONGEST_TEXT) {
        return OUT_OF_MEMORY_ERROR;
    }
    if (!copyAscii(slots->env, text, characters, roomFor(slots, static_cast<std::size_t>(length)))) {
        length = slots->env->GetStringUTFLength(text);
        if (length < 0 || length > LONGEST_TEXT) {
            return OUT_OF_MEMORY_ERROR;
        }
        slots->env->GetStringUTFRegion(text, 0, characters, roomFor(slots, static_cast<std::size_t>(length)));
    }
    appendSlot(slots, static_cast<std::size_t>(length));
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
    char* bytes = roomFor(slots, static_cast<std::size_t>(total));
    for (std::int32_t i = 0; i < partCount; ++i) {
        if (parts[i].array != nullptr) {
            slots->env->GetByteArrayRegion(parts[i].array, parts[i].offset, parts[i].length,
                                           reinterpret_cast<jbyte*>(bytes));
            bytes += parts[i].length;
        }
    }
    appendSlot(slots, static_cast<std::size_t>(total));
    return NO_ERROR;  // the ranges lie in their arrays: nothing can have been thrown
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

}  // namespace tabulo::internal
