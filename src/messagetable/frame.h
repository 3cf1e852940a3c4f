// One stored message.
//
//   offset  width  field (machine byte order, no padding)
//        0      4  msgLen: uint32, whole frame from this field to the end of msgLen2
//        4      4  uniformId
//        8      4  seqNum
//       12      4  prevSeqNum
//       16      4  connMsgId
//       20      8  timestamp
//       28      5  msgType: the first five bytes, NUL-padded
//       33      1  isPossDupFlag
//       34      1  isOutOfSequence
//       35    var  numeric fields, numericFieldCount of them (numeric_value.h)
//      var    var  string fields, stringFieldCount of them: uint32 sdLen and sdLen bytes; sdLen 0 is an absent field
//    end-4      4  msgLen2: the same value as msgLen
//
// A frame is complete when all of it is there and both lengths agree with its size. A reader decodes it field by field
// and never beyond what is there: data that runs out is NO_DATA_ERROR (no complete message stands there, or not yet),
// two lengths that differ are CONSISTENCY_ERROR, two equal ones that do not fit the fields NO_DATA_ERROR. The trailing
// length lets a block be walked backward.
#pragma once

#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "messagetable/message.h"
#include "storage/table_config.h"

namespace tabulo::internal {

inline constexpr std::int32_t FRAME_FIXED_SIZE = 35;
inline constexpr std::int32_t FRAME_LENGTH_SIZE = 4;
inline constexpr std::int32_t STRING_LENGTH_SIZE = 4;

// The smallest frame of a layout: all fields absent. 55 bytes for four string fields and no numeric one.
std::int32_t mfr_minimumFrameSize(std::int32_t stringFieldCount, std::int32_t numericFieldCount) noexcept;

// Appends one frame. The result is the stream's error: STREAM_EXTENSION_ERROR when it cannot hold the frame, which is
// also the answer to a frame beyond 2^31 - 1 bytes. Fields are taken as they are (mt_writeMessage checks them).
ErrorCode mfr_encodeMessage(const MessageView& message, KSVByteStream* stream) noexcept;

// Decodes the frame at the beginning of `available` bytes; texts point into them. NO_DATA_ERROR; CONSISTENCY_ERROR also
// for an unknown numeric type. On a failure behind the fixed part, texts that were not reached are absent.
ErrorCode mfr_decodeFrame(const std::uint8_t* bytes, std::int64_t available, const MessageTableLayout& layout,
                          DecodedMessage* message) noexcept;
// Decodes the frame at the read mark of a forward stream and leaves the mark behind it; texts point into the stream's
// buffer. The errors of mfr_decodeFrame. On failure the mark stays.
ErrorCode mfr_decodeMessage(const MessageTableLayout& layout, KSVByteStream* stream, DecodedMessage* message) noexcept;

// Decodes the frame that ends at the read mark of a forward stream and leaves the mark at its start, so that repeated
// calls walk backward. NO_DATA_ERROR also for a trailing length that reaches before the stream's beginning;
// CONSISTENCY_ERROR also for one below the smallest frame, and for a frame that does not end at the mark. On failure
// the mark stays.
ErrorCode mfr_decodeMessageBackward(const MessageTableLayout& layout, KSVByteStream* stream,
                                    DecodedMessage* message) noexcept;

}  // namespace tabulo::internal
