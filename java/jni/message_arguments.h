// What the writeMessage overloads take from Java: metadata, string slots, numeric slots.
//
// Texts are copied into one buffer of the calling thread that is reused from call to call, so that a stored message
// costs no allocation once the buffer has reached the size of the largest one.
#pragma once

#include <jni.h>

#include <array>
#include <cstdint>
#include <vector>

#include "core/error_codes.h"
#include "messagetable/message.h"
#include "storage/table_config.h"

namespace tabulo::internal {

// A part of a Java byte array; a null array is an empty part whatever offset and length say.
struct ByteRange {
    jbyteArray array;
    jint offset;
    jint length;
};

// The metadata of a message. The MsgType is the string when it is not null and below 6 bytes, else the low byte of the
// character.
MessageMetadata messageMetadata_fromJava(JNIEnv* env, jint uniformId, jint seqNum, jint prevSeqNum, jint connMsgId,
                                         jlong timestamp, jchar msgTypeChar, jstring msgType, jboolean isPossDupFlag,
                                         jboolean isOutOfSequence) noexcept;

// Copies an encoded frame: *bytes stand, and are never null, until the thread copies the next one or begins string
// slots. NULL_POINTER_ERROR without an array; JNI_ERROR for a range that does not lie in it. Throws std::bad_alloc.
ErrorCode frameBytes_fromJava(JNIEnv* env, const ByteRange& range, const char** bytes);

// String slots under construction. Slots are added in the order of the message's string fields and are usable after
// stringSlots_finish, until the next stringSlots_begin of the same thread.
struct StringSlots {
    JNIEnv* env = nullptr;
    std::vector<char>* buffer = nullptr;
    std::size_t used = 0;  // bytes of the buffer
    std::array<StringField, MAX_STRING_FIELDS> fields{};
    std::array<std::size_t, MAX_STRING_FIELDS> offsets{};
    std::int32_t count = 0;
};

StringSlots stringSlots_begin(JNIEnv* env) noexcept;
// Adds the string's modified UTF-8 bytes and their NUL; a null string is an absent field. OUT_OF_MEMORY_ERROR when its
// characters cannot be had. Throws std::bad_alloc, like the next two.
ErrorCode stringSlots_addString(StringSlots* slots, jstring text);
// Adds elements 0 .. count-1 of an array that has them; a null array adds absent fields.
ErrorCode stringSlots_addElements(StringSlots* slots, jobjectArray array, std::int32_t count);
// Adds the parts' bytes one after another and a NUL; an absent field when every array is null. JNI_ERROR for a negative
// or out-of-range offset or length, OUT_OF_MEMORY_ERROR beyond 2^31 - 2 bytes.
ErrorCode stringSlots_addBytes(StringSlots* slots, const ByteRange* parts, std::int32_t partCount);
// Points the fields at their texts.
void stringSlots_finish(StringSlots* slots) noexcept;

// Numeric slots of a message; slots behind the last one filled are absent.
using NumericSlots = std::array<NumericValue, MAX_NUMERIC_FIELDS>;

// All doubles. NUMERIC_FIELDS_LIMIT_ERROR for 17 or more; *count becomes the array's length, 0 for a null array.
ErrorCode numericSlots_fromDoubles(JNIEnv* env, jdoubleArray values, NumericSlots* slots, std::int32_t* count) noexcept;
// By a type map: entry t of field i is longs[t - 1] for t >= 1, absent for 0, doubles[-t - 1] below. The value arrays
// count as empty unless they hold 1 to 16 values. NUMERIC_FIELDS_COUNT_MISMATCH_ERROR for a map with fewer than
// fieldCount entries (null: none), INDEX_OUT_OF_BOUNDS_ERROR for an entry that points behind its values.
ErrorCode numericSlots_fromTypeMap(JNIEnv* env, jintArray typeMap, jlongArray longs, jdoubleArray doubles,
                                   std::int32_t fieldCount, NumericSlots* slots) noexcept;

}  // namespace tabulo::internal
