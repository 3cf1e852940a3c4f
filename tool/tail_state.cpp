// The file is text: a first line that says what it is, then a line for each table,
//
//   BLOCK OFFSET CHECKSUM PATH
//
// with "-" for the three of a table without a place. In PATH "%" and the bytes below space stand as %HH.
#include "tool/tail_state.h"

#include <fmt/format.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <string_view>

#include "tool/status.h"
#include "tool/tables.h"
#include "tool/target.h"

namespace tabulo::tool {

namespace {

constexpr std::string_view FIRST_LINE = "tabulo tail state 1";

// FNV-1a.
std::uint64_t checksumOf(std::span<const std::byte> bytes) noexcept {
    std::uint64_t sum = 0xCBF29CE484222325U;
    for (const std::byte byte : bytes) {
        sum = (sum ^ static_cast<std::uint64_t>(byte)) * 0x100000001B3U;
    }
    return sum;
}

std::string escaped(std::string_view path) {
    std::string text;
    for (const char character : path) {
        const auto byte = static_cast<unsigned char>(character);
        text += byte < 0x20 || character == '%' ? fmt::format("%{:02X}", byte) : std::string(1, character);
    }
    return text;
}

template <typename T>
bool parse(std::string_view text, int base, T* value) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value, base);
    return !text.empty() && result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool unescape(std::string_view text, std::string* path) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned byte = static_cast<unsigned char>(text[i]);
        if (text[i] == '%') {
            if (text.size() - i < 3 || !parse(text.substr(i + 1, 2), 16, &byte)) {
                return false;
            }
            i += 2;
        }
        path->push_back(static_cast<char>(byte));
    }
    return !path->empty();
}

// The text up to the next such character, which is taken away with it.
std::string_view take(std::string_view* text, char end) {
    const std::size_t place = text->find(end);
    const std::string_view taken = text->substr(0, place);
    text->remove_prefix(place == std::string_view::npos ? text->size() : place + 1);
    return taken;
}

bool parseLine(std::string_view line, TailPlaces* places) {
    const std::string_view block = take(&line, ' ');
    const std::string_view offset = take(&line, ' ');
    const std::string_view checksum = take(&line, ' ');
    std::string path;
    if (!unescape(line, &path)) {
        return false;
    }
    if (block == "-" && offset == "-" && checksum == "-") {
        (*places)[path] = std::nullopt;
        return true;
    }
    TailPlace place;
    const bool isWhole = parse(block, 10, &place.position.block) && parse(offset, 10, &place.position.offset) &&
                         parse(checksum, 16, &place.checksum);
    (*places)[path] = place;
    return isWhole;
}

}  // namespace

TailPlace placeOf(const MessageView& message) noexcept {
    return {message.position(), checksumOf(message.frame())};
}

std::optional<TailPlaces> readTailState(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error) && !error) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (error || !file) {
        throw Failure(fmt::format("{} cannot be read: {}", shownPath(path), std::strerror(errno)));
    }
    std::string_view rest = content;
    bool isWhole = take(&rest, '\n') == FIRST_LINE;
    TailPlaces places;
    while (isWhole && !rest.empty()) {
        isWhole = rest.find('\n') != std::string_view::npos && parseLine(take(&rest, '\n'), &places);
    }
    if (!isWhole) {
        throw Failure(fmt::format("{} is no state of tail; remove it to begin anew", shownPath(path)));
    }
    return places;
}

void writeTailState(const std::filesystem::path& path, const TailPlaces& places) {
    std::string text = fmt::format("{}\n", FIRST_LINE);
    for (const auto& [table, place] : places) {
        const std::string numbers = place.has_value() ? fmt::format("{} {} {:016x}", place->position.block,
                                                                    place->position.offset, place->checksum)
                                                      : "- - -";
        text += fmt::format("{} {}\n", numbers, escaped(table));
    }
    replaceFile(path, text);
}

}  // namespace tabulo::tool
