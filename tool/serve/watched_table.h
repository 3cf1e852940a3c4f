// One served table, as it is followed: what of it has changed since it was looked at last. One thread uses it.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "tabulo/reader.h"
#include "tool/serve/table_sight.h"

namespace tabulo::tool::serve {

class WatchedTable {
  public:
    using Clock = std::chrono::steady_clock;

    // A file that is no table, or cannot be read, is an Error; look() tells later ones as damage.
    WatchedTable(std::string id, std::filesystem::path path);

    // Looks whether the file has changed, and at what is new. True when there is something to tell.
    bool look(Clock::time_point now);
    // Asks whether a process writes it, which can take milliseconds. True when that has changed.
    bool askForWriter();
    // What is known now.
    TableSight sight() const { return sight_; }

  private:
    bool hasNewMarks();
    bool lookAtFile(Clock::time_point now);
    // Whether the file holds what it held, and perhaps more, or something else.
    enum class Content { same, other };
    void lookAtAll(Content content);
    void lookAtNew();
    void lookAtSessionInfos();
    void take(const MessageView& message);
    void findLast(Reader& reader);
    void countDay();
    bool updateRate(Clock::time_point now);

    TableSight sight_;
    struct stat seen_ {};
    std::optional<Reader> reader_;
    Position end_{};
    TableMarks::Found marks_{};                                        // their numbers, as they were told
    std::deque<std::pair<Clock::time_point, std::int64_t>> arrivals_;  // messages of the last seconds
    Clock::time_point dayCounted_;
    Clock::time_point lookedAtAll_;
};

}  // namespace tabulo::tool::serve
