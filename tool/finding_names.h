// What kinds of findings are called where damage is told: by verify, and on pages.
#pragma once

#include <string_view>

#include "tabulo/damage.h"

namespace tabulo::tool {

constexpr std::string_view findingName(FindingKind kind) noexcept {
    switch (kind) {
        case FindingKind::header:
            return "header";
        case FindingKind::lengthWord:
            return "length";
        case FindingKind::frame:
            return "message";
        case FindingKind::footer:
            return "footer";
        case FindingKind::range:
            return "range";
        case FindingKind::filter:
            return "filter";
        case FindingKind::statistics:
            return "statistics";
        case FindingKind::tail:
            return "tail";
        case FindingKind::order:
            return "order";
    }
    return "unknown";
}

}  // namespace tabulo::tool
