#include <array>

#include "tool/verb.h"

namespace tabulo::tool {

std::span<const Verb* const> verbs() noexcept {
    static constexpr std::array ALL = {&listVerb, &infoVerb, &statsVerb, &blocksVerb, &sessionVerb};
    return ALL;
}

}  // namespace tabulo::tool
