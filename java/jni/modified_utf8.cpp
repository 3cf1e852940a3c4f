#include "jni/modified_utf8.h"

namespace tabulo::internal {

namespace {

unsigned byteAt(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
}

bool isContinuation(unsigned byte) {
    return (byte & 0xC0U) == 0x80U;
}

// Length of the sequence that a lead byte announces; 1 for bytes that lead none.
std::size_t announcedLength(unsigned lead) {
    if ((lead & 0xE0U) == 0xC0U) {
        return 2;
    }
    if ((lead & 0xF0U) == 0xE0U) {
        return 3;
    }
    return (lead & 0xF8U) == 0xF0U ? 4 : 1;
}

// The code point of the sequence at `index` and its length; length 1 with the byte itself when it is no valid sequence.
std::size_t decodeOne(std::string_view text, std::size_t index, unsigned* codePoint) {
    const unsigned lead = byteAt(text, index);
    const std::size_t length = announcedLength(lead);
    *codePoint = lead;
    if (length == 1) {
        return 1;
    }
    unsigned value = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned next = byteAt(text, index + i);
        if (!isContinuation(next)) {
            return 1;
        }
        value = (value << 6) | (next & 0x3FU);
    }
    const bool valid = length == 2   ? value >= 0x80U || value == 0
                       : length == 3 ? value >= 0x800U
                                     : value >= 0x10000U && value <= 0x10FFFFU;
    if (!valid) {
        return 1;
    }
    *codePoint = value;
    return length;
}

bool isAscii(std::string_view text) {
    unsigned seen = 0;
    for (const char byte : text) {
        seen |= static_cast<unsigned char>(byte);
    }
    return seen < 0x80U;
}

bool endsInHighSurrogate(std::string_view text) {
    const std::size_t size = text.size();
    return size >= 3 && byteAt(text, size - 3) == 0xEDU && (byteAt(text, size - 2) & 0xF0U) == 0xA0U &&
           isContinuation(byteAt(text, size - 1));
}

}  // namespace

std::u16string modifiedUtf8_decode(std::string_view text) {
    if (isAscii(text)) {
        return {text.begin(), text.end()};  // nearly every text, and many times as fast
    }
    std::u16string decoded;
    decoded.reserve(text.size());
    for (std::size_t index = 0; index < text.size();) {
        unsigned codePoint = 0;
        index += decodeOne(text, index, &codePoint);
        if (codePoint >= 0x10000U) {
            decoded += static_cast<char16_t>(0xD800U + ((codePoint - 0x10000U) >> 10));
            decoded += static_cast<char16_t>(0xDC00U + ((codePoint - 0x10000U) & 0x3FFU));
        } else {
            decoded += static_cast<char16_t>(codePoint);
        }
    }
    return decoded;
}

std::size_t modifiedUtf8_wholeLength(std::string_view text) noexcept {
    std::size_t lead = text.size();
    for (std::size_t back = 1; back <= 4 && back <= text.size(); ++back) {
        if (!isContinuation(byteAt(text, text.size() - back))) {
            lead = text.size() - back;
            break;
        }
    }
    // At most one character goes, and the surrogate before it: bytes that are no UTF-8 are characters of their own.
    if (lead < text.size() && announcedLength(byteAt(text, lead)) > text.size() - lead) {
        text = text.substr(0, lead);
    }
    return endsInHighSurrogate(text) ? text.size() - 3 : text.size();
}

}  // namespace tabulo::internal
