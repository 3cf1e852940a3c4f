// What is known of one served table at a moment: what the page's overview shows.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/table_info.h"
#include "tabulo/times.h"
#include "tool/serve/block_spans.h"
#include "tool/serve/json.h"
#include "tool/serve/table_marks.h"
#include "tool/serve/time_buckets.h"

namespace tabulo::tool::serve {

// The newest message in one direction.
struct LastMessage {
    std::int32_t seqNum = 0;
    std::int64_t time = 0;
    std::string type{};
};

struct TableSight {
    std::uint64_t version = 0;  // of the list when this was seen
    std::string id{};
    std::filesystem::path path{};
    TableInfo info{};  // messageCount, fileSize and lastTime as of now
    std::optional<TimeUnit> unit{};
    double rate = 0;
    std::optional<LastMessage> lastSent{};
    std::optional<LastMessage> lastReceived{};
    std::optional<TimeBuckets> day{};  // by quarters of an hour, up to the newest message
    std::string damage{};
    bool hasIndex = false;
    std::vector<std::pair<std::int32_t, std::int64_t>> values{};  // of a session info table, with their tags
    std::shared_ptr<TableMarks> marks{};                          // of a message table; they have locks of their own
    std::shared_ptr<BlockSpans> spans{};
};

// As /api/tables tells it.
void appendTable(const TableSight& sight, Json* json);

}  // namespace tabulo::tool::serve
