// Fuzz target: frames decoded from the beginning and from the end of any bytes.
//
//   1     layout: a number of layouts(), or else the largest layout that there is
//   rest  frames
//
// What decodes must encode to the same bytes, and the two directions must agree.
#include <vector>

#include "fuzz/harness.h"
#include "fuzz/table_image.h"
#include "fuzz/tables.h"

namespace tabulo::internal::fuzz {

namespace {

constexpr MessageTableLayout LARGEST = {1, MAX_STRING_FIELDS, 0, MAX_NUMERIC_FIELDS};

const MessageTableLayout& layoutOf(std::uint8_t number) {
    return number < layouts().size() ? layouts()[number] : LARGEST;
}

struct Frame {
    std::int32_t begin = 0;
    std::int32_t end = 0;
    Message message;
};

using Decode = ErrorCode (*)(const MessageTableLayout&, KSVByteStream*, DecodedMessage*) noexcept;

// Decodes from the stream's mark on, until something does not decode.
std::vector<Frame> decodeAll(KSVByteStream* stream, const MessageTableLayout& layout, Decode decode) {
    std::vector<Frame> frames;
    for (;;) {
        const std::int32_t before = byteStream_readMark(stream);
        DecodedMessage message;
        const ErrorCode code = decode(layout, stream, &message);
        const std::int32_t after = byteStream_readMark(stream);
        if (code != NO_ERROR) {
            require(code == NO_DATA_ERROR || code == CONSISTENCY_ERROR, "a frame is refused with another code");
            require(before == after, "a frame that does not decode moves the mark");
            return frames;
        }
        frames.push_back(
            {std::min(before, after), std::max(before, after), ownedMessage(message_view(message, layout))});
    }
}

// The bytes of the message as it is encoded. A type's bytes behind its first NUL are not encoded.
void checkEncoding(const Frame& frame, const std::uint8_t* bytes) {
    const ByteStreamPtr stream(byteStream_create(0));
    requireSuccess(mfr_encodeMessage(MessageFields(frame.message).view(), stream.get()), "encoding a decoded message");
    const std::int32_t length = frame.end - frame.begin;
    require(byteStream_writeMark(stream.get()) == length, "a decoded message encodes to another length");
    Bytes stored(bytes + frame.begin, bytes + frame.end);
    constexpr std::size_t TYPE_OFFSET = 28;
    bool ended = false;
    for (std::size_t i = 0; i < static_cast<std::size_t>(MSG_TYPE_LENGTH); ++i) {
        ended = ended || stored[TYPE_OFFSET + i] == 0;
        stored[TYPE_OFFSET + i] = ended ? 0 : stored[TYPE_OFFSET + i];
    }
    require(std::equal(stored.begin(), stored.end(), byteStream_buffer(stream.get())),
            "a decoded message encodes to other bytes");
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

using namespace tabulo::internal::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const tabulo::internal::MessageTableLayout& layout = layoutOf(data[0]);
    Bytes bytes(data + 1, data + size);  // exactly as large, so that no read behind it goes unnoticed
    const auto length = static_cast<std::int32_t>(bytes.size());
    tabulo::internal::KSVByteStream stream;
    tabulo::internal::byteStream_init(&stream, bytes.data(), length);
    tabulo::internal::byteStream_resetWrite(&stream, length);
    const std::vector<Frame> forward = decodeAll(&stream, layout, tabulo::internal::mfr_decodeMessage);
    const std::int32_t end = tabulo::internal::byteStream_readMark(&stream);
    const std::vector<Frame> back = decodeAll(&stream, layout, tabulo::internal::mfr_decodeMessageBackward);
    require(forward.size() == back.size(), "frames that decode forward do not decode backward");
    for (std::size_t i = 0; i < forward.size(); ++i) {
        require(forward[i].message == back[forward.size() - 1 - i].message, "the two directions disagree");
        checkEncoding(forward[i], bytes.data());
    }
    if (end != length) {
        tabulo::internal::byteStream_resetRead(&stream, tabulo::internal::BYTE_STREAM_FORWARD, length);
        for (const Frame& frame : decodeAll(&stream, layout, tabulo::internal::mfr_decodeMessageBackward)) {
            checkEncoding(frame, bytes.data());
        }
    }
    return 0;
}

// Half of the time the bytes become one frame, at the end of what was there or alone.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
    Randomness random(seed);
    const std::size_t mutated = LLVMFuzzerMutate(data, size, maxSize);
    if (mutated < 2 || random() % 2 == 0) {
        return mutated;
    }
    Bytes bytes(data + 1, data + mutated);
    const Bytes kept(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(random() % bytes.size()));
    const Bytes frame = frame_repair(random() % 2 == 0 ? bytes : Bytes(kept), layoutOf(data[0]));
    Bytes result = random() % 2 == 0 ? kept : Bytes();
    result.insert(result.end(), frame.begin(), frame.end());
    if (random() % 4 == 0) {
        result.insert(result.end(), frame.begin(), frame.end());
    }
    const std::size_t count = std::min(result.size(), maxSize - 1);
    std::copy_n(result.begin(), count, data + 1);
    return 1 + count;
}
