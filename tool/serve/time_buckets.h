// Counts of messages over time.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace tabulo::tool::serve {

// Equal steps of time, as pages count it, and how many messages lie in each.
struct TimeBuckets {
    double from = 0;
    double step = 1;  // above 0
    std::vector<double> counts{};

    void add(double time, double messages) {
        const double place = std::floor((time - from) / step);
        if (place >= 0 && place < static_cast<double>(counts.size())) {
            counts[static_cast<std::size_t>(place)] += messages;
        }
    }

    // Those of other buckets with the same steps.
    void add(const TimeBuckets& others) {
        for (std::size_t i = 0; i < counts.size(); ++i) {
            counts[i] += others.counts[i];
        }
    }

    // Messages of which only the first and the last time are known: as if they came evenly.
    void addEvenly(double first, double last, double messages) {
        const double begin = (first - from) / step;
        const double end = (last - from) / step;
        const auto size = static_cast<double>(counts.size());
        if (!(end - begin > 1e-6)) {
            add(first, messages);
            return;
        }
        if (end <= 0 || begin >= size) {
            return;
        }
        for (auto i = static_cast<std::size_t>(std::max(begin, 0.0)); i < counts.size(); ++i) {
            const auto place = static_cast<double>(i);
            const double share = std::min(end, place + 1) - std::max(begin, place);
            if (share <= 0) {
                return;
            }
            counts[i] += messages * share / (end - begin);
        }
    }
};

}  // namespace tabulo::tool::serve
