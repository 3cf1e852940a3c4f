#include <array>

#include "tool/verb.h"

namespace tabulo::tool {

std::span<const Verb* const> verbs() noexcept {
    static constexpr std::array ALL = {
        &listVerb,  &infoVerb,   &catVerb,     &tailVerb,    &orderVerb,  &statsVerb,   &sqlVerb,
        &serveVerb, &blocksVerb, &sessionVerb, &indexVerb,   &verifyVerb, &recoverVerb, &backupVerb,
        &splitVerb, &exportVerb, &shipVerb,    &receiveVerb, &lagVerb,    &helpVerb,    &completionVerb};
    return ALL;
}

}  // namespace tabulo::tool
