// Large texts, appended piece by piece.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tool/message_format.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

inline constexpr std::size_t LARGEST_PIECE = std::size_t{64} * 1024;

// Bytes of the first piece of a text, which ends in front of a character; among bytes that are none, anywhere.
inline std::size_t pieceLength(std::string_view text) {
    constexpr std::size_t LONGEST_CHARACTER = 4;
    if (text.size() <= LARGEST_PIECE) {
        return text.size();
    }
    for (std::size_t length = LARGEST_PIECE; length > LARGEST_PIECE - LONGEST_CHARACTER; --length) {
        if ((static_cast<unsigned char>(text[length]) & 0xC0U) != 0x80U) {
            return length;
        }
    }
    return LARGEST_PIECE;
}

// Calls append(piece) for each piece of a text, with what was appended spilled between them.
template <typename Append>
void appendPieces(std::string_view text, std::string* out, const Spill& spill, const Append& append) {
    if (!spill || text.size() <= LARGEST_PIECE) {
        append(text);
        return;
    }
    while (!text.empty()) {
        const std::size_t length = pieceLength(text);
        append(text.substr(0, length));
        text.remove_prefix(length);
        spill(out);
    }
}

// The same in Base64, which goes by three bytes.
inline void appendPiecesBase64(std::string_view bytes, std::string* out, const Spill& spill) {
    constexpr std::size_t MOST = LARGEST_PIECE / 3 * 3;
    for (; spill && bytes.size() > MOST; bytes.remove_prefix(MOST)) {
        appendBase64(bytes.substr(0, MOST), out);
        spill(out);
    }
    appendBase64(bytes, out);
}

}  // namespace tabulo::tool
