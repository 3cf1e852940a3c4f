// /api/order: the life of an order.
#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/fix.h"
#include "tool/order_life.h"
#include "tool/order_search.h"
#include "tool/serve/answers.h"
#include "tool/serve/limits.h"
#include "tool/serve/message_json.h"
#include "tool/serve/request_words.h"

namespace tabulo::tool::serve {

namespace {

std::vector<OrderId> idsOf(const std::string& id, const std::string& idIs) {
    if (id.empty() || id.find('\0') != std::string::npos) {
        throw Refusal(400, "id=ID is missing: a ClOrdID or OrderID of the order");
    }
    if (idIs != "any" && idIs != "ClOrdID" && idIs != "OrderID") {
        throw Refusal(400, fmt::format("id-is is any, ClOrdID or OrderID, not '{}'", idIs));
    }
    std::vector<OrderId> ids;
    if (idIs != "OrderID") {
        ids.push_back({OrderIdKind::client, id});
    }
    if (idIs != "ClOrdID") {
        ids.push_back({OrderIdKind::order, id});
    }
    return ids;
}

std::string_view nameOf(OrderField field) {
    return FixDictionary::builtIn().tagName(tagOf(field));
}

void appendValue(const std::optional<std::string>& value, Json* json) {
    value.has_value() ? json->text(*value) : json->null();
}

void appendValues(const OrderStep& step, Json* json) {
    json->key("values").begin();
    for (std::size_t i = 0; i < orderFieldCount; ++i) {
        const auto field = static_cast<OrderField>(i);
        if (step.value(field).has_value()) {
            json->key(nameOf(field)).text(*step.value(field));
        }
    }
    json->end().key("names").begin();
    for (std::size_t i = 0; i < orderFieldCount; ++i) {
        const auto field = static_cast<OrderField>(i);
        const std::string name = step.value(field).has_value()
                                     ? FixDictionary::builtIn().valueName(tagOf(field), *step.value(field))
                                     : std::string();
        if (!name.empty()) {
            json->key(nameOf(field)).text(name);
        }
    }
    json->end();
}

void appendStep(const MessageView& message, const OrderStep& step, const TableSight& table, Json* json) {
    json->begin();
    appendMessage(message, table, json);
    json->key("isReport").flag(step.isReport).key("isLate").flag(step.isLate);
    appendValues(step, json);
    json->key("changes").beginList();
    for (const OrderChange& change : step.changes) {
        json->begin().key("field").text(nameOf(change.field)).key("before");
        appendValue(change.before, json);
        json->key("after").text(change.after).end();
    }
    json->endList().end();
}

void appendState(const OrderLife& life, const OrderSearch& search, const std::vector<double>& times, Json* json) {
    json->key("state").begin();
    for (std::size_t i = 0; i < orderFieldCount; ++i) {
        const auto field = static_cast<OrderField>(i);
        const bool isAsked = field == OrderField::status && life.reports() == 0;  // no report has told it yet
        if (life.value(field).has_value() && !isAsked) {
            json->key(nameOf(field)).text(*life.value(field));
        }
    }
    if (life.reports() > 0 && life.value(OrderField::status).has_value()) {
        const std::string& status = *life.value(OrderField::status);
        json->key("statusName").text(FixDictionary::builtIn().valueName(tagOf(OrderField::status), status));
    }
    json->key("clOrdIds").number(static_cast<std::int64_t>(search.clOrdIds()));
    json->key("tables").number(static_cast<std::int64_t>(search.tablesFound()));
    json->key("messages").number(life.messages()).key("reports").number(life.reports());
    if (!times.empty()) {
        json->key("firstTime").number(times.front()).key("lastTime").number(times.back());
    }
    json->end();
}

}  // namespace

std::string answerOrder(Question& question) {
    const std::string id = question.one("id").value_or("");
    const std::string idIs = question.one("id-is").value_or("any");
    const std::vector<OrderId> ids = idsOf(id, idIs);
    std::vector<Sight> sights;
    std::vector<Reader> readers;
    for (AskedTable& table : question.tables(Question::Filters::none)) {
        sights.push_back(table.sight);
        readers.push_back(std::move(table.reader));
    }
    OrderSearch search(question.console(), readers);
    search.search(ids);
    if (!search.hasFound()) {
        throw Refusal(404, fmt::format("no message of {} tables names '{}' as ClOrdID, OrigClOrdID or OrderID",
                                       readers.size(), id));
    }
    OrderLife life;
    std::vector<double> times;
    bool isMore = false;
    Json json;
    json.begin().key("id").text(id).key("steps").beginList();
    while (const MessageView* message = search.next()) {
        const auto reader = std::find_if(readers.begin(), readers.end(),
                                         [&](const Reader& one) { return &one.layout() == &message->layout(); });
        const TableSight& table = *sights[static_cast<std::size_t>(reader - readers.begin()) % sights.size()];
        const OrderStep step = life.take(*message);
        times.push_back(pageTime(message->time(), table.unit));
        if (life.messages() <= MOST_STEPS && json.size() < LARGEST_ANSWER) {
            appendStep(*message, step, table, &json);
        } else {
            isMore = true;
        }
    }
    json.endList();
    appendState(life, search, times, &json);
    json.key("more").flag(isMore);
    std::string command = fmt::format("tabulo order {}", shellWord(id));
    command += idIs == "any" ? "" : fmt::format(" --id-is {}", idIs);
    for (const Sight& sight : sights) {
        command += " " + shellWord(sight->path.string());
    }
    json.key("command").text(command).end();
    return json.take();
}

}  // namespace tabulo::tool::serve
