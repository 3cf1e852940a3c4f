// Fuzz target: the words of HTTP requests that the server of tables takes apart itself.
//
//   1     how many tables a cursor must have places in
//   rest  the word
//
// What is taken for a place or a cursor must be written as it was read, or as the same numbers; a name is told from a
// port without losing a byte; a cookie's value stands in its header; a word for the shell has every byte of the text.
#include "tool/serve/request_words.h"

#include <algorithm>
#include <string_view>

#include "fuzz/harness.h"
#include "fuzz/input.h"

namespace tabulo::internal::fuzz {

namespace {

using namespace tool::serve;

void checkPlaces(std::string_view text, std::size_t tables) {
    if (const std::optional<Position> place = placeOf(text); place.has_value()) {
        require(place->block >= 0 && place->offset >= place->block, "a place in front of its block is taken");
        require(placeOf(placeText(*place)) == place, "a place comes back as another one");
    }
    if (const auto places = cursorOf(text, tables); places.has_value()) {
        require(places->size() == tables, "a cursor has places in another number of tables");
        require(cursorOf(cursorText(*places), tables) == places, "a cursor comes back as another one");
    }
}

void checkHost(std::string_view text) {
    const HostWords words = hostWords(text);
    const bool hasColon = words.name.size() < text.size();
    require(words.name.size() + words.port.size() + (hasColon ? 1 : 0) == text.size(), "a host has lost bytes");
    if (isNumericHost(words.name)) {
        require(words.name.find_first_not_of("0123456789abcdef.:[]") == std::string::npos,
                "a name is taken for an address");
    }
}

void checkCookie(std::string_view text) {
    const auto value = cookieValue(text, "name");
    if (value.has_value()) {
        require(text.find("name=" + std::string(*value)) != std::string_view::npos, "a cookie has a value of nowhere");
    }
}

// What a shell makes of it: quoted stretches, and "\'" between them.
void checkShellWord(std::string_view text) {
    const std::string word = shellWord(text);
    std::string read;
    bool isQuoted = false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '\'') {
            isQuoted = !isQuoted;
        } else if (word[i] == '\\' && !isQuoted) {
            read += word[++i];
        } else {
            require(isQuoted || std::string_view(" \t\n;&|<>$`\"*?[]{}()~#!^").find(word[i]) == std::string_view::npos,
                    "a shell would read more than one word");
            read += word[i];
        }
    }
    require(read == text, "a shell reads another text");
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tabulo::internal::fuzz;
    Input input({data, size});
    const auto tables = static_cast<std::size_t>(input.byte() % 4);
    const std::string text(input.rest().begin(), input.rest().end());
    checkPlaces(text, tables);
    checkHost(text);
    checkCookie(text);
    checkShellWord(text);
    static_cast<void>(tabulo::tool::serve::isMore(text, 100));
    return 0;
}
