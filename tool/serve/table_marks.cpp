#include "tool/serve/table_marks.h"

#include <fmt/format.h>

#include <algorithm>

#include "tabulo/error.h"
#include "tool/serve/message_way.h"

namespace tabulo::tool::serve {

namespace {

// The largest so many of each kind are kept.
constexpr std::size_t KEPT = 500;
// A pause is a silence when it is that many times the usual one, and at least a minute.
constexpr double SILENCE_FACTOR = 20;
constexpr std::int64_t SILENCE_SECONDS = 60;
// A second is a burst when it has that many times the usual number of messages, and at least a hundred.
constexpr double BURST_FACTOR = 10;
constexpr std::int64_t BURST_MESSAGES = 100;
constexpr std::int64_t SECONDS_TO_KNOW = 10;
// How fast what is usual follows what is.
constexpr double WEIGHT = 0.05;

bool isAdmin(MessageClass messageClass) noexcept {
    return messageClass == MessageClass::adminTo || messageClass == MessageClass::adminFrom;
}

void keepLargest(std::vector<Mark>* marks) {
    if (marks->size() > 2 * KEPT) {
        std::nth_element(marks->begin(), marks->begin() + KEPT, marks->end(),
                         [](const Mark& a, const Mark& b) { return a.count > b.count; });
        marks->resize(KEPT);
    }
}

}  // namespace

std::string_view markKindName(MarkKind kind) noexcept {
    switch (kind) {
        case MarkKind::gap:
            return "gap";
        case MarkKind::reset:
            return "reset";
        case MarkKind::resend:
            return "resend";
        case MarkKind::silence:
            return "silence";
        case MarkKind::burst:
            return "burst";
    }
    return "";
}

void TableMarks::keep(Mark mark) {
    const std::lock_guard lock(mutex_);
    std::vector<Mark>& kept = marks_[mark.kind];
    kept.push_back(std::move(mark));
    keepLargest(&kept);
}

void TableMarks::takeNumber(const MessageView& message, Side* side, std::string_view direction) {
    const std::int32_t number = message.seqNum();
    if (number > 0 && number <= side->last) {
        fillGap(number, side);
    }
    if (number <= 0 || message.possDup()) {
        return;
    }
    if (side->last > 0 && number > side->last + 1) {
        const std::int32_t first = side->last + 1;
        const std::int32_t last = number - 1;
        const std::string numbers =
            first == last ? fmt::format("{} is", first) : fmt::format("{} to {} are", first, last);
        const std::lock_guard lock(mutex_);
        side->openGaps += 1;
        side->gaps.push_back({{MarkKind::gap, time_, message.time(), std::int64_t{last} - first + 1, message.position(),
                               fmt::format("{} missing among the numbers of {} messages", numbers, direction)},
                              first,
                              last});
        if (side->gaps.size() > 2 * KEPT) {
            side->gaps.erase(side->gaps.begin(), side->gaps.begin() + KEPT);  // the oldest
        }
    } else if (number == 1 && side->last > 0) {
        keep({MarkKind::reset, message.time(), message.time(), side->last, message.position(),
              fmt::format("the numbers of {} messages begin again behind {}", direction, side->last)});
        const std::lock_guard lock(mutex_);
        for (Gap& gap : side->gaps) {
            gap.last = 0;  // the same numbers mean other messages from now on
        }
    }
    // A lower number that is no beginning came late, or again; where the numbers stand it does not tell.
    side->last = number == 1 ? 1 : std::max(side->last, number);
}

// A message that was missing has come after all; few gaps are open at a time, the newest at the end.
void TableMarks::fillGap(std::int32_t number, Side* side) {
    const std::lock_guard lock(mutex_);
    for (auto gap = side->gaps.rbegin(); gap != side->gaps.rend() && number <= gap->last; ++gap) {
        if (number >= gap->first) {
            side->openGaps -= gap->come == 0 ? 1 : 0;
            gap->come += 1;
            return;
        }
    }
}

void TableMarks::takeResend(const MessageView& message) {
    const bool isResent = message.messageClass() == MessageClass::resent || message.possDup();
    if (isResent) {
        const std::lock_guard lock(mutex_);
        resends_ += 1;
        std::vector<Mark>& runs = marks_[MarkKind::resend];
        if (isResending_ && !runs.empty()) {
            runs.back().until = message.time();
            runs.back().count += 1;
            runs.back().text = fmt::format("{} messages were sent again", runs.back().count);
        } else {
            keepLargest(&runs);
            runs.push_back(
                {MarkKind::resend, message.time(), message.time(), 1, message.position(), "1 message was sent again"});
        }
    }
    isResending_ = isResent;
}

void TableMarks::endSecond() {
    if (secondsSeen_ >= SECONDS_TO_KNOW && inSecond_ >= BURST_MESSAGES &&
        static_cast<double>(inSecond_) > BURST_FACTOR * usualInSecond_) {
        keep({MarkKind::burst, secondTime_, secondTime_, inSecond_, secondAt_,
              fmt::format("{} messages in one second, where {:.0f} are usual", inSecond_, usualInSecond_)});
    }
    usualInSecond_ += (static_cast<double>(inSecond_) - usualInSecond_) * (secondsSeen_ == 0 ? 1 : WEIGHT);
    secondsSeen_ += 1;
    inSecond_ = 0;
}

void TableMarks::takeTime(const MessageView& message) {
    const std::int64_t perSecond = timesPerSecond(*unit_);
    const std::int64_t second = secondOfTime(message.time(), *unit_);
    if (hasTime_ && second != second_) {
        endSecond();
    }
    if (inSecond_ == 0) {
        second_ = second;
        secondAt_ = message.position();
        secondTime_ = message.time();
    }
    inSecond_ += 1;
    if (hasTime_ && message.time() > time_) {
        const std::int64_t pause = message.time() - time_;
        const auto length = static_cast<double>(pause);
        if (secondsSeen_ >= SECONDS_TO_KNOW && pause / perSecond >= SILENCE_SECONDS &&
            length > SILENCE_FACTOR * usualPause_) {
            const std::int64_t seconds = pause / perSecond;
            keep({MarkKind::silence, time_, message.time(), pause, message.position(),
                  seconds < 7200 ? fmt::format("nothing for {} min {} s", seconds / 60, seconds % 60)
                                 : fmt::format("nothing for {} h {} min", seconds / 3600, seconds / 60 % 60)});
        } else {
            usualPause_ += (length - usualPause_) * (usualPause_ == 0 ? 1 : WEIGHT);
        }
    }
}

void TableMarks::take(const MessageView& message) {
    const auto messageClass = message.messageClass();
    takeResend(message);
    if (unit_.has_value()) {
        takeTime(message);
    }
    if (messageClass.has_value() && *messageClass != MessageClass::resent) {
        const bool sent = isSent(*messageClass);
        Side& side = sent ? sent_ : received_;
        takeNumber(message, &side, sent ? "sent" : "received");
        if (isAdmin(*messageClass)) {
            side.hasAdmin = true;
        }
    }
    time_ = message.time();
    hasTime_ = true;
}

bool TableMarks::look(std::int64_t messages, const Work& work) {
    try {
        if (!reader_.has_value()) {
            reader_.emplace(path_);
        }
        Query query;
        if (next_.has_value()) {
            query.from(*next_);
        }
        Messages stretch = reader_->messages(query, work);
        for (std::int64_t count = 0; count < messages; ++count) {
            const MessageView* message = stretch.next();
            if (message == nullptr) {
                const std::lock_guard lock(mutex_);
                complete_ = complete_ || stretch.ending() == Ending::data;
                return false;
            }
            take(*message);
            next_ = message->next();
        }
        return true;
    } catch (const Error& error) {
        const std::lock_guard lock(mutex_);
        complete_ = true;
        damage_ = error.code() == Code::vseek ? "" : error.what();  // else the table was emptied, and is looked at anew
        return false;
    }
}

TableMarks::Found TableMarks::counts() const {
    const std::lock_guard lock(mutex_);
    Found found;
    found.gaps = (sent_.hasAdmin ? sent_.openGaps : 0) + (received_.hasAdmin ? received_.openGaps : 0);
    found.resends = resends_;
    found.complete = complete_;
    found.damage = damage_;
    return found;
}

TableMarks::Found TableMarks::found() const {
    Found found = counts();
    const std::lock_guard lock(mutex_);
    for (const auto& [kind, marks] : marks_) {
        found.marks.insert(found.marks.end(), marks.begin(), marks.end());
    }
    for (const Side* side : {&sent_, &received_}) {
        for (const Gap& gap : side->gaps) {
            if (side->hasAdmin) {
                found.marks.push_back(gap.mark);
                found.marks.back().text += gap.come > 0 ? fmt::format("; {} came later", gap.come) : "";
            }
        }
    }
    return found;
}

}  // namespace tabulo::tool::serve
