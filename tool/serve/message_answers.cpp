// /api/messages and /api/message.
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <limits>

#include "tabulo/error.h"
#include "tool/serve/answers.h"
#include "tool/serve/limits.h"
#include "tool/serve/message_json.h"
#include "tool/serve/request_words.h"
#include "tool/serve/table_walk.h"

namespace tabulo::tool::serve {

namespace {

std::vector<Position> placesOf(const std::string& cursor, std::size_t tables) {
    std::optional<std::vector<Position>> places = cursorOf(cursor, tables);
    if (!places.has_value()) {
        throw Refusal(400, "the cursor is none of a question for these tables");
    }
    return *std::move(places);
}

// The place of a table's message by its number.
Position placeOfNumber(AskedTable& table, std::int64_t number, const Question& question) {
    const std::vector<BlockSpan> spans = table.sight->spans->all(question.work());
    auto block = std::upper_bound(spans.begin(), spans.end(), number, [](std::int64_t wanted, const BlockSpan& span) {
        return wanted < span.firstMessage;
    });
    if (block == spans.begin()) {
        return table.reader.begin();
    }
    --block;
    Query query;
    query.from(firstOf(*block));
    Messages messages = table.reader.messages(query, question.work());
    Position place = firstOf(*block);
    for (std::int64_t i = block->firstMessage; i < number; ++i) {
        const MessageView* message = messages.next();
        if (message == nullptr) {
            break;  // there are fewer: what comes behind the last one
        }
        place = message->next();
    }
    return place;
}

// The messages of several tables, merged.
class MergedWalk {
  public:
    MergedWalk(std::vector<AskedTable>& tables, const Question& question, bool backward, bool byTime,
               const std::vector<Position>& begin)
        : backward_(backward), byTime_(byTime) {
        for (std::size_t i = 0; i < tables.size(); ++i) {
            walks_.push_back(std::make_unique<TableWalk>(tables[i], question, backward,
                                                         begin.empty() ? std::nullopt : std::optional(begin[i])));
        }
    }

    // The next message, as the walk that has it; null at the end.
    TableWalk* next() {
        if (given_ != nullptr) {
            std::exchange(given_, nullptr)->advance();
        } else {
            for (; begun_ < walks_.size(); ++begun_) {
                walks_[begun_]->advance();
            }
        }
        for (const auto& walk : walks_) {
            if (walk->message() != nullptr && (given_ == nullptr || isFirst(*walk->message(), *given_->message()))) {
                given_ = walk.get();
            }
        }
        return given_;
    }

    // Where another question goes on. The message that was given last counts as taken.
    std::vector<Position> boundaries() const {
        std::vector<Position> places;
        for (const auto& walk : walks_) {
            const bool isTaken = walk.get() == given_;
            places.push_back(!isTaken    ? walk->boundary()
                             : backward_ ? walk->message()->position()
                                         : walk->message()->next());
        }
        return places;
    }
    const std::vector<std::unique_ptr<TableWalk>>& walks() const noexcept { return walks_; }

  private:
    bool isFirst(const MessageView& a, const MessageView& b) const {
        const std::int64_t keyA = byTime_ ? a.time() : a.uniformId();
        const std::int64_t keyB = byTime_ ? b.time() : b.uniformId();
        return backward_ ? keyA >= keyB : keyA < keyB;  // ties follow the order of the tables, or its reverse
    }

    bool backward_;
    bool byTime_;
    std::vector<std::unique_ptr<TableWalk>> walks_;
    std::size_t begun_ = 0;
    TableWalk* given_ = nullptr;
};

struct Begin {
    bool backward = false;
    std::vector<Position> places{};  // none: an end of the tables
};

Begin beginOf(const Question& question, std::vector<AskedTable>& tables) {
    const std::optional<std::string> after = question.one("after");
    const std::optional<std::string> before = question.one("before");
    const bool isAt = question.one("at").has_value();
    if ((after ? 1 : 0) + (before ? 1 : 0) + (isAt ? 1 : 0) > 1) {
        throw Refusal(400, "after, before and at exclude each other");
    }
    Begin begin;
    if (isAt) {
        if (tables.size() != 1 || question.isFiltered()) {
            throw Refusal(400, "at=NUMBER counts the messages of one table, without filters");
        }
        const std::int64_t number = question.number("at", 0, 0, std::numeric_limits<std::int64_t>::max());
        begin.places.push_back(placeOfNumber(tables[0], number, question));
    } else if (after.has_value()) {
        begin.places = placesOf(*after, tables.size());
    } else if (before.has_value()) {
        begin.backward = true;
        if (*before != "end") {
            begin.places = placesOf(*before, tables.size());
        }
    }
    return begin;
}

void appendCosts(const MergedWalk& merged, Json* json) {
    std::int64_t read = 0;
    std::int64_t blocksRead = 0;
    std::int64_t blocksSkipped = 0;
    std::string damage;
    for (const auto& walk : merged.walks()) {
        read += walk->read();
        blocksRead += walk->blocksRead();
        blocksSkipped += walk->blocksSkipped();
        if (!walk->damage().empty() && walk->isDone()) {
            damage += (damage.empty() ? "" : "; ") + walk->table().sight->id + ": " + walk->damage();
        }
    }
    json->key("read").number(read).key("blocksRead").number(blocksRead).key("blocksSkipped").number(blocksSkipped);
    json->key("damage");
    damage.empty() ? json->null() : json->text(damage);
}

}  // namespace

std::string answerMessages(Question& question) {
    const auto limit = static_cast<std::size_t>(question.number("limit", 100, 1, MOST_MESSAGES));
    const std::string merge = question.one("merge").value_or("uid");
    if (merge != "uid" && merge != "time") {
        throw Refusal(400, fmt::format("merge is uid or time, not '{}'", merge));
    }
    std::vector<AskedTable> tables = question.tables();
    const Begin begin = beginOf(question, tables);
    MergedWalk merged(tables, question, begin.backward, merge == "time", begin.places);
    std::vector<Position> start;
    for (const auto& walk : merged.walks()) {
        start.push_back(walk->boundary());
    }
    std::vector<std::string> found;
    std::size_t bytes = 0;
    bool isStopped = false;
    bool isMore = true;
    try {
        while (found.size() < limit && bytes < LARGEST_ANSWER) {
            const TableWalk* walk = merged.next();
            if (walk == nullptr) {
                isMore = false;
                break;
            }
            Json row;
            row.begin();
            appendMessage(*walk->message(), *walk->table().sight, &row);
            row.end();
            found.push_back(row.take());
            bytes += found.back().size();
        }
    } catch (const TimeIsUp&) {
        isStopped = true;
    }
    const std::vector<Position> reached = merged.boundaries();
    if (begin.backward) {
        std::reverse(found.begin(), found.end());
    }
    Json json;
    json.begin().key("messages").beginList();
    for (const std::string& row : found) {
        json.raw(row);
    }
    json.endList();
    json.key("after").text(cursorText(begin.backward ? start : reached));
    json.key("before").text(cursorText(begin.backward ? reached : start));
    json.key("more").flag(isMore);
    if (isStopped) {
        json.key("stopped").flag(true);
    }
    appendCosts(merged, &json);
    std::vector<Sight> sights(tables.size());
    std::transform(tables.begin(), tables.end(), sights.begin(), [](const AskedTable& table) { return table.sight; });
    json.key("command").text(question.command("cat", sights)).end();
    return json.take();
}

std::string answerMessage(Question& question) {
    AskedTable table = question.table();
    const std::optional<Position> place = placeOf(question.one("at").value_or(""));
    if (!place.has_value()) {
        throw Refusal(400, "at=BLOCK.OFFSET is missing: the place of a message, as /api/messages tells it");
    }
    try {
        Query query;
        query.from(*place);
        Messages messages = table.reader.messages(query, question.work());
        const MessageView* message = messages.next();
        if (message != nullptr && message->position() == *place) {
            Json json;
            json.begin();
            appendWholeMessage(*message, *table.sight, &json);
            json.end();
            return json.take();
        }
    } catch (const Error& error) {
        if (error.code() != Code::vseek) {
            throw Refusal(400, error.what());
        }
    }
    throw Refusal(404, fmt::format("no message stands at {} of {}", placeText(*place), table.sight->id));
}

}  // namespace tabulo::tool::serve
