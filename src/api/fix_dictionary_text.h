// The text of the built-in FIX dictionary, which fix_dictionary.cpp reads.
#pragma once

#include <string_view>

namespace tabulo::api {

// Pairs "<tag> <name>", separated by blanks, by rising tag.
extern const std::string_view FIX_TAG_NAMES;
// Pairs "<type> <name>", separated by blanks.
extern const std::string_view FIX_MESSAGE_NAMES;
// Lines "<tag> <value>=<name>;<value>=<name>...", by rising tag; a tag may have several lines.
extern const std::string_view FIX_VALUE_NAMES;

}  // namespace tabulo::api
