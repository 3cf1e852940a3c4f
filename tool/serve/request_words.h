// The words of a request that are ours to take apart, out of hostile bytes: places and cursors, hosts, cookies,
// lengths. Nothing here fails but for want of memory, which is std::bad_alloc.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/message.h"

namespace tabulo::tool::serve {

// A place as "BLOCK.OFFSET", and the reverse; none for anything else.
std::string placeText(const Position& place);
std::optional<Position> placeOf(std::string_view text) noexcept;

// Places in so many tables, with "~" between them, and the reverse; none for anything else.
std::string cursorText(const std::vector<Position>& places);
std::optional<std::vector<Position>> cursorOf(std::string_view text, std::size_t tables);

// A Host header: the name in small letters, with the brackets that an address of IPv6 has; the port empty when there is
// none.
struct HostWords {
    std::string name{};
    std::string port{};
};
HostWords hostWords(std::string_view host);
// True for an address of IPv4, or one of IPv6 in brackets.
bool isNumericHost(const std::string& name);

// The value of a cookie among those of a Cookie header; none when it is not there.
std::optional<std::string_view> cookieValue(std::string_view cookies, std::string_view name) noexcept;

// Whether a length as a header tells it is more than that; what is no number is told by who reads the body.
bool isMore(std::string_view length, std::size_t most) noexcept;

// A text as a shell takes it for one word.
std::string shellWord(std::string_view text);

}  // namespace tabulo::tool::serve
