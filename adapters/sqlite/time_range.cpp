#include "adapters/sqlite/time_range.h"

#include <algorithm>
#include <limits>

namespace tabulo::sqlite {

namespace {

constexpr std::int64_t YEAR_0 = -62'167'219'200;      // in seconds since 1970
constexpr std::int64_t YEAR_10000 = 253'402'300'800;  // likewise

// The first time for which a condition holds that holds for all behind it, too.
template <typename Holds>
std::int64_t firstTime(TimeUnit unit, const Holds& holds) {
    auto [first, last] = isoTimes(unit);
    while (first <= last) {
        const std::int64_t middle =
            static_cast<std::int64_t>((static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first)) / 2 +
                                      static_cast<std::uint64_t>(first));
        if (!holds(isoTime(middle, unit))) {
            if (middle == std::numeric_limits<std::int64_t>::max()) {
                return middle;
            }
            first = middle + 1;
        } else if (middle == first) {
            break;
        } else {
            last = middle - 1;
        }
    }
    return first;
}

}  // namespace

IsoTimes isoTimes(TimeUnit unit) noexcept {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    const std::int64_t scale = timesPerSecond(unit);
    const bool isAll = most / scale < YEAR_10000;
    return isAll ? IsoTimes{std::numeric_limits<std::int64_t>::min(), most}
                 : IsoTimes{YEAR_0 * scale, YEAR_10000 * scale - 1};
}

std::int64_t firstTimeAtLeast(const std::string& text, TimeUnit unit) {
    return firstTime(unit, [&](const std::string& shown) { return shown >= text; });
}

std::int64_t firstTimeAbove(const std::string& text, TimeUnit unit) {
    return firstTime(unit, [&](const std::string& shown) { return shown > text; });
}

}  // namespace tabulo::sqlite
