#include "tool/serve/request_words.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "tool/lowered.h"

namespace tabulo::tool::serve {

namespace {

constexpr char BETWEEN_PLACES = '~';

bool isOffset(std::string_view text, std::int64_t* offset) noexcept {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *offset);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && *offset >= 0;
}

bool isPlain(char letter) noexcept {
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z') ||
           std::string_view("-_./:=,+@%").find(letter) != std::string_view::npos;
}

}  // namespace

std::string placeText(const Position& place) {
    return std::to_string(place.block) + "." + std::to_string(place.offset);
}

std::optional<Position> placeOf(std::string_view text) noexcept {
    const std::size_t dot = text.find('.');
    Position place;
    if (dot == std::string_view::npos || !isOffset(text.substr(0, dot), &place.block) ||
        !isOffset(text.substr(dot + 1), &place.offset) || place.offset < place.block) {
        return std::nullopt;
    }
    return place;
}

std::string cursorText(const std::vector<Position>& places) {
    std::string text;
    for (const Position& place : places) {
        text += (text.empty() ? "" : std::string(1, BETWEEN_PLACES)) + placeText(place);
    }
    return text;
}

std::optional<std::vector<Position>> cursorOf(std::string_view text, std::size_t tables) {
    std::vector<Position> places;
    for (std::size_t begin = 0; begin <= text.size() && places.size() < tables;) {
        const std::size_t end = std::min(text.find(BETWEEN_PLACES, begin), text.size());
        const std::optional<Position> place = placeOf(text.substr(begin, end - begin));
        if (!place.has_value()) {
            return std::nullopt;
        }
        places.push_back(*place);
        begin = end + 1;
        if (places.size() == tables && end != text.size()) {
            return std::nullopt;  // more stands behind them
        }
    }
    const bool isWhole = places.size() == tables && (tables > 0 || text.empty());
    return isWhole ? std::optional(std::move(places)) : std::nullopt;
}

HostWords hostWords(std::string_view host) {
    HostWords words{lowered(host), ""};
    const std::size_t colon = words.name.rfind(':');
    if (colon != std::string::npos && words.name.find(']', colon) == std::string::npos) {
        words.port = words.name.substr(colon + 1);
        words.name.erase(colon);
    }
    return words;
}

bool isNumericHost(const std::string& name) {
    std::array<unsigned char, sizeof(struct in6_addr)> bytes{};
    if (name.find('\0') != std::string::npos) {
        return false;  // the system's functions would stop there
    }
    if (name.size() > 2 && name.front() == '[' && name.back() == ']') {
        return ::inet_pton(AF_INET6, name.substr(1, name.size() - 2).c_str(), bytes.data()) == 1;
    }
    return ::inet_pton(AF_INET, name.c_str(), bytes.data()) == 1;
}

std::optional<std::string_view> cookieValue(std::string_view cookies, std::string_view name) noexcept {
    while (!cookies.empty()) {
        std::string_view one = cookies.substr(0, cookies.find(';'));
        cookies.remove_prefix(std::min(cookies.size(), one.size() + 1));
        one.remove_prefix(std::min(one.size(), one.find_first_not_of(' ')));
        const std::size_t equals = one.find('=');
        if (equals != std::string_view::npos && one.substr(0, equals) == name) {
            return one.substr(equals + 1);
        }
    }
    return std::nullopt;
}

bool isMore(std::string_view length, std::size_t most) noexcept {
    std::size_t bytes = 0;
    const auto result = std::from_chars(length.data(), length.data() + length.size(), bytes);
    return result.ec == std::errc::result_out_of_range || (result.ec == std::errc() && bytes > most);
}

std::string shellWord(std::string_view text) {
    if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) {
        return std::string(text);
    }
    std::string word = "'";
    for (const char letter : text) {
        word += letter == '\'' ? "'\\''" : std::string(1, letter);
    }
    return word + "'";
}

}  // namespace tabulo::tool::serve
