// Texts that times are compared with, as ranges of times.
#pragma once

#include <cstdint>
#include <string>

#include "tabulo/times.h"

namespace tabulo::sqlite {

// The times that are shown in ISO 8601; all others are shown as numbers.
struct IsoTimes {
    std::int64_t first;
    std::int64_t last;
};
IsoTimes isoTimes(TimeUnit unit) noexcept;

// The first of those times whose text is not below this one, or is above it; one behind the last when none is.
std::int64_t firstTimeAtLeast(const std::string& text, TimeUnit unit);
std::int64_t firstTimeAbove(const std::string& text, TimeUnit unit);

}  // namespace tabulo::sqlite
