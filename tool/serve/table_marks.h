// What stands out in a table: gaps in sequence numbers, resets, resends, silences, bursts. Found by looking through all
// its messages once, piece by piece, and then through what is new. One thread looks; any thread may ask.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/times.h"

namespace tabulo::tool::serve {

enum class MarkKind { gap, reset, resend, silence, burst };
inline constexpr std::size_t markKindCount = 5;
std::string_view markKindName(MarkKind kind) noexcept;

struct Mark {
    MarkKind kind = MarkKind::gap;
    std::int64_t time = 0;   // at which it begins
    std::int64_t until = 0;  // and ends
    std::int64_t count = 0;  // missing numbers, messages, or for a silence the length in the table's unit
    Position at{};           // the first message of it, or the first one behind it
    std::string text{};
};

class TableMarks {
  public:
    TableMarks(std::filesystem::path path, std::optional<TimeUnit> unit) : path_(std::move(path)), unit_(unit) {}

    struct Found {
        std::vector<Mark> marks{};
        std::int64_t gaps = 0;     // of which nothing came later; also those that are no longer kept
        std::int64_t resends = 0;  // messages
        bool complete = false;     // everything that was there has been looked at
        std::string damage{};      // that ended the looking; empty for none
    };
    Found found() const;
    // The numbers of found() alone.
    Found counts() const;

    // Looks at some more messages. False when there are none. Damage ends the looking.
    bool look(std::int64_t messages, const Work& work);

  private:
    // Missing numbers.
    struct Gap {
        Mark mark{};
        std::int32_t first = 0;
        std::int32_t last = 0;
        std::int64_t come = 0;  // since, as resends
    };
    // One direction of a session.
    struct Side {
        std::int32_t last = 0;
        std::atomic<bool> hasAdmin = false;  // heartbeats are stored, too: a number that is not there is missing
        std::vector<Gap> gaps{};
        std::int64_t openGaps = 0;  // of which nothing has come
    };

    void take(const MessageView& message);
    void takeNumber(const MessageView& message, Side* side, std::string_view direction);
    void fillGap(std::int32_t number, Side* side);
    void takeResend(const MessageView& message);
    void takeTime(const MessageView& message);
    void endSecond();
    void keep(Mark mark);

    std::filesystem::path path_;
    std::optional<TimeUnit> unit_;
    std::optional<Reader> reader_;
    std::optional<Position> next_;

    Side sent_;
    Side received_;
    std::int64_t time_ = 0;
    bool hasTime_ = false;
    double usualPause_ = 0;
    std::int64_t second_ = 0;
    std::int64_t inSecond_ = 0;
    Position secondAt_{};
    std::int64_t secondTime_ = 0;
    double usualInSecond_ = 0;
    std::int64_t secondsSeen_ = 0;
    bool isResending_ = false;

    mutable std::mutex mutex_;  // guards what follows, and the gaps of both sides
    std::map<MarkKind, std::vector<Mark>> marks_;
    std::int64_t resends_ = 0;
    bool complete_ = false;
    std::string damage_;
};

}  // namespace tabulo::tool::serve
