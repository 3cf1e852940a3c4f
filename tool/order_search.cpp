#include "tool/order_search.h"

#include <algorithm>
#include <memory>

#include "tabulo/error.h"
#include "tool/tables.h"

namespace tabulo::tool {

namespace {

// So many ids are asked of a table's filters; with more of them it is faster, and takes less memory, to look at each
// message.
constexpr std::size_t MOST_IDS_ASKED = 1000;

std::vector<std::string> textsOf(const IdSet& ids) {
    std::vector<std::string> texts;
    for (std::size_t n = 0; n < ids.size(); ++n) {
        texts.emplace_back(ids[n]);
    }
    return texts;
}

}  // namespace

OrderSearch::OrderSearch(Console& console, std::vector<Reader>& readers) : console_(console) {
    for (Reader& reader : readers) {
        tables_.push_back({.reader = &reader, .fields = OrderIdFields(reader.layout())});
        Table& table = tables_.back();
        try {
            table.end = reader.end();
        } catch (const Error& error) {
            table.damage = error.what();
        }
    }
}

std::size_t OrderSearch::tablesFound() const noexcept {
    return static_cast<std::size_t>(
        std::ranges::count_if(tables_, [](const Table& table) { return table.first.has_value(); }));
}

std::size_t OrderSearch::clOrdIds() const noexcept {
    return ids_.setOf(OrderIdKind::client).size() - unseen_.size();
}

void OrderSearch::search(const std::vector<OrderId>& begin) {
    for (const OrderId& id : begin) {
        ids_.add(id);
        if (id.kind == OrderIdKind::client) {
            unseen_.emplace_back(id.value);
        }
    }
    for (bool isNew = true; isNew;) {
        isNew = false;
        for (Table& table : tables_) {
            isNew = searchTable(table) || isNew;
        }
    }
}

// Tests what has not been tested with all ids yet. False when there is nothing left of that.
bool OrderSearch::searchTable(Table& table) {
    const bool onlyBegin = table.testedIds == ids_.size();
    if (onlyBegin && !table.testedFrom) {
        return false;
    }
    const std::size_t idsBefore = ids_.size();
    Query stretch;
    if (onlyBegin) {
        stretch.before(*table.testedFrom);
    } else if (table.end) {
        stretch.before(*table.end);
    }
    ask(table, stretch, console_.watched("searching " + shownPath(table.reader->path())));
    std::optional<Position> newFrom;
    while (const MessageView* message = advance(table)) {
        someTime_ = someTime_ ? someTime_ : message->time();
        table.first = table.first ? std::min(*table.first, message->position()) : message->position();
        table.behindLast = std::max(table.behindLast, message->next());
        for (const OrderId& id : idsOfMessage_.ids()) {
            if (id.kind == OrderIdKind::client) {
                std::erase(unseen_, id.value);
            }
            if (!idsOfMessage_.areOfSeveralOrders()) {
                newFrom = ids_.add(id) ? message->next() : newFrom;
            }
        }
    }
    table.asked.clear();
    // New ids counted at once for the messages behind them, but only in what was tested now.
    const bool countedAtOnce = table.isAskedForAll && !onlyBegin;
    table.testedIds = countedAtOnce ? ids_.size() : idsBefore;
    table.testedFrom = countedAtOnce ? newFrom : std::nullopt;
    return true;
}

// Asks for the messages of a stretch that may belong to the order: by each of the indexed fields, or for all of them.
void OrderSearch::ask(Table& table, const Query& stretch, const Work& work) {
    table.asked.clear();
    table.head = nullptr;
    table.isAskedForAll = !table.fields.isComplete() || ids_.size() > MOST_IDS_ASKED;
    try {
        if (table.isAskedForAll) {
            table.asked.push_back({table.reader->messages(stretch, work)});
        } else {
            for (const OrderIdFields::Place& place : table.fields.places) {
                const std::vector<std::string> wanted = textsOf(ids_.setOf(place.kind));
                if (!wanted.empty()) {
                    Query query = stretch;
                    query.text(*place.text, TextCondition::anyOf(wanted));
                    table.asked.push_back({table.reader->messages(query, work)});
                }
            }
        }
    } catch (const Error& error) {
        table.damage = error.what();
        table.asked.clear();
    }
    for (Asked& asked : table.asked) {
        advance(table, asked);
    }
}

void OrderSearch::advance(Table& table, Asked& asked) {
    asked.head = nullptr;
    try {
        asked.head = asked.messages.next();
        if (asked.head == nullptr && asked.messages.ending() == Ending::dropped) {
            table.damage = shownPath(table.reader->path()) + " was emptied while it was read";
        }
    } catch (const Error& error) {
        table.damage = error.what();
    }
}

bool OrderSearch::belongs(const MessageView& message, const Table& table) {
    idsOfMessage_.look(message, table.fields);
    return std::ranges::any_of(idsOfMessage_.ids(), [this](const OrderId& id) { return ids_.contains(id); });
}

// The next message of a table that belongs to the order.
const MessageView* OrderSearch::advance(Table& table) {
    do {
        const std::optional<Position> given =
            table.head == nullptr ? std::nullopt : std::optional(table.head->position());
        table.head = nullptr;
        for (Asked& asked : table.asked) {
            if (given && asked.head != nullptr && asked.head->position() == *given) {
                advance(table, asked);
            }
            if (asked.head != nullptr && (table.head == nullptr || asked.head->position() < table.head->position())) {
                table.head = asked.head;
            }
        }
    } while (table.head != nullptr && !belongs(*table.head, table));
    return table.head;
}

void OrderSearch::askForAll() {
    isGiving_ = true;
    const auto whole = std::make_shared<Work>(console_.watched("reading"));
    for (Table& table : tables_) {
        if (!table.first) {
            continue;
        }
        Work work;
        work.progress = [this, whole, &table](const Progress& progress) {
            table.progress = progress;
            Progress sum;
            for (const Table& one : tables_) {
                sum.done += one.progress.done;
                sum.total += one.progress.total;
            }
            whole->progress(sum);
        };
        Query stretch;
        stretch.from(*table.first);
        stretch.before(table.behindLast);
        ask(table, stretch, work);
        advance(table);
    }
}

const MessageView* OrderSearch::next() {
    if (!isGiving_) {
        askForAll();
    } else if (given_ != nullptr) {
        advance(*given_);
    }
    given_ = nullptr;
    for (Table& table : tables_) {
        if (table.head != nullptr && (given_ == nullptr || table.head->time() < given_->head->time())) {
            given_ = &table;
        }
    }
    return given_ == nullptr ? nullptr : given_->head;
}

void OrderSearch::tellDamage() {
    for (const Table& table : tables_) {
        if (!table.damage.empty()) {
            console_.warn(table.damage);
        }
    }
}

}  // namespace tabulo::tool
