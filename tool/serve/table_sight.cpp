#include "tool/serve/table_sight.h"

#include <cmath>

namespace tabulo::tool::serve {

namespace {

void appendTime(std::optional<std::int64_t> time, const TableSight& sight, Json* json) {
    time.has_value() ? json->time(*time, sight.unit) : json->null();
}

void appendPoint(std::string_view name, const std::optional<SequencePoint>& point, const TableSight& sight,
                 Json* json) {
    json->key(name);
    if (!point.has_value()) {
        json->null();
        return;
    }
    json->begin().key("seq").number(std::int64_t{point->seqNum}).key("time").time(point->time, sight.unit).end();
}

void appendLast(std::string_view name, const std::optional<LastMessage>& last, const TableSight& sight, Json* json) {
    json->key(name);
    if (!last.has_value()) {
        json->null();
        return;
    }
    json->begin().key("seq").number(std::int64_t{last->seqNum}).key("time").time(last->time, sight.unit);
    json->key("type").text(last->type).end();
}

void appendNames(std::string_view key, const std::vector<std::string>& names, Json* json) {
    json->key(key).beginList();
    for (const std::string& name : names) {
        json->text(name);
    }
    json->endList();
}

void appendDay(const TableSight& sight, Json* json) {
    json->key("day");
    if (!sight.day.has_value()) {
        json->null();
        return;
    }
    json->begin().key("from").number(sight.day->from).key("step").number(sight.day->step).key("counts").beginList();
    for (const double count : sight.day->counts) {
        json->number(static_cast<std::int64_t>(std::llround(count)));
    }
    json->endList().key("estimate").flag(true).end();
}

void appendMessageTable(const TableSight& sight, Json* json) {
    const TableInfo& info = sight.info;
    json->key("messages").number(info.messageCount).key("closedBlocks").number(info.closedBlocks);
    json->key("timeUnit");
    sight.unit.has_value() ? json->text(timeUnitName(*sight.unit)) : json->null();
    json->key("firstTime");
    appendTime(info.firstTime, sight, json);
    json->key("lastTime");
    appendTime(info.lastTime, sight, json);
    json->key("rate").number(sight.rate);
    appendDay(sight, json);
    appendLast("lastSent", sight.lastSent, sight, json);
    appendLast("lastReceived", sight.lastReceived, sight, json);
    appendPoint("lastGood", info.lastGood, sight, json);
    appendPoint("firstPending", info.firstPending, sight, json);
    appendPoint("lastPending", info.lastPending, sight, json);
    const TableMarks::Found found = sight.marks->counts();
    json->key("gaps").number(found.gaps).key("resends").number(found.resends);
    json->key("marksComplete").flag(found.complete);
    json->key("writer").text(info.openForWriting == OpenForWriting::yes  ? "yes"
                             : info.openForWriting == OpenForWriting::no ? "no"
                                                                         : "unknown");
    json->key("closedCleanly").flag(info.closedCleanly).key("index").flag(sight.hasIndex);
    appendNames("texts", info.layout.texts, json);
    appendNames("numbers", info.layout.numbers, json);
}

}  // namespace

void appendTable(const TableSight& sight, Json* json) {
    const bool hasMessages = sight.info.kind == TableKind::messages;
    json->begin().key("id").text(sight.id).key("name").text(sight.info.name).key("path").text(sight.path.string());
    json->key("kind").text(hasMessages ? "messages" : "session").key("size").number(sight.info.fileSize);
    json->key("damage");
    sight.damage.empty() ? json->null() : json->text(sight.damage);
    if (hasMessages) {
        appendMessageTable(sight, json);
    } else {
        json->key("values").beginList();
        for (const auto& [tag, value] : sight.values) {
            json->begin().key("tag").number(std::int64_t{tag}).key("value").number(value).end();
        }
        json->endList();
    }
    json->end();
}

}  // namespace tabulo::tool::serve
