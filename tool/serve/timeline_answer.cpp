// /api/timeline: how many messages there were when, and what stands out.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/error.h"
#include "tool/listing.h"
#include "tool/serve/answers.h"
#include "tool/serve/message_json.h"
#include "tool/serve/request_words.h"
#include "tool/serve/table_walk.h"
#include "tool/serve/time_buckets.h"

namespace tabulo::tool::serve {

namespace {

// So many messages are read for one picture; where there are more, some of the blocks stand for the others.
constexpr std::int64_t MOST_READ = 200000;
constexpr std::size_t MOST_SERIES = 8;
// Values that are told from each other while counting; the others are "other" at once.
constexpr std::size_t MOST_VALUES = 1000;
constexpr std::size_t MOST_MARKS = 500;
constexpr std::size_t LONGEST_NAME = 60;

// By what messages are told apart.
class Series {
  public:
    Series(std::string by, TimeBuckets empty) : by_(std::move(by)), empty_(std::move(empty)) {}

    bool isOne() const noexcept { return by_.empty(); }
    const TimeBuckets& empty() const noexcept { return empty_; }

    // The name of a message's series.
    std::string nameOf(const MessageView& message) const {
        if (by_ == "class") {
            const auto messageClass = message.messageClass();
            return messageClass.has_value() ? std::string(className(*messageClass)) : "-";
        }
        if (by_ == "direction") {
            const std::optional<bool> sent = wentOut(message);
            return !sent.has_value() ? "-" : *sent ? "sent" : "received";
        }
        if (by_ == "type") {
            return std::string(message.type());
        }
        const std::vector<std::string>& names = message.layout().texts;
        const auto found = std::find(names.begin(), names.end(), by_);
        const Text text = found == names.end() ? Text() : message.text(static_cast<std::size_t>(found - names.begin()));
        return text.has_value() ? cutText(shownText(*text), LONGEST_NAME) : "-";
    }

    TimeBuckets& of(const std::string& name) {
        const auto found = counts_.find(name);
        if (found != counts_.end()) {
            return found->second;
        }
        return counts_.emplace(counts_.size() < MOST_VALUES ? name : "other", empty_).first->second;
    }

    // The largest by name, and the others together.
    std::vector<std::pair<std::string, TimeBuckets>> largest() {
        std::vector<std::pair<std::string, TimeBuckets>> all(counts_.begin(), counts_.end());
        const auto sum = [](const auto& one) {
            double total = one.first == "other" ? -1e18 : 0;  // last, whatever it holds
            for (const double count : one.second.counts) {
                total += count;
            }
            return total;
        };
        std::stable_sort(all.begin(), all.end(), [&](const auto& a, const auto& b) { return sum(a) > sum(b); });
        if (all.size() > MOST_SERIES) {
            std::pair<std::string, TimeBuckets> other("other", empty_);
            for (std::size_t i = MOST_SERIES; i < all.size(); ++i) {
                other.second.add(all[i].second);
            }
            all.resize(MOST_SERIES);
            all.push_back(std::move(other));
        }
        return all;
    }

  private:
    std::string by_;
    TimeBuckets empty_;
    std::map<std::string, TimeBuckets> counts_;
};

struct Range {
    double from = 0;
    double until = 0;  // not included
};

// The blocks of one table that have messages in the range, and what is counted of them.
class TableCount {
  public:
    TableCount(AskedTable& table, const Question& question, const Range& range, bool isFiltered, Series& series)
        : table_(table), question_(question), range_(range), isFiltered_(isFiltered), series_(series) {
        for (const BlockSpan& span : table.sight->spans->all(question.work())) {
            if (timeOf(span.lastTime) >= range.from && timeOf(span.firstTime) < range.until) {
                spans_.push_back(span);
                messages_ += span.messages;
            }
        }
    }

    std::int64_t messages() const noexcept { return messages_; }
    std::int64_t read() const noexcept { return read_; }
    // Empty for none.
    const std::string& damage() const noexcept { return damage_; }

    // Reads every message where there are few; else counts are estimated: false.
    bool count(std::int64_t mostRead) {
        if (spans_.empty() || (messages_ <= mostRead && countAll(mostRead))) {
            return true;
        }
        const double selected = estimate(mostRead);
        // Of however many messages a filter may leave few, which an index or filters of blocks find fast.
        if (isFiltered_ && selected < static_cast<double>(mostRead) / 4 && countAll(mostRead)) {
            return true;
        }
        for (const auto& [name, buckets] : estimated_) {
            series_.of(name).add(buckets);
        }
        return false;
    }

  private:
    // False when there are too many; nothing is counted then.
    bool countAll(std::int64_t most) {
        std::map<std::string, std::vector<double>> times;
        const std::int64_t first = storedTime(range_.from, table_.sight->unit);
        const std::int64_t end = storedTime(range_.until, table_.sight->unit);
        Query query = table_.selection.query;
        query.from(firstOf(spans_.front()));
        if (end <= first) {
            return true;
        }
        query.times(first, end - 1);
        Messages messages = table_.reader.messages(query, question_.work());
        while (const MessageView* message = next(messages)) {
            if (messages.messagesRead() > most) {
                return false;
            }
            if (!table_.selection.matches || table_.selection.matches(*message)) {
                times[series_.isOne() ? "" : series_.nameOf(*message)].push_back(timeOf(message->time()));
            }
        }
        if (messages.messagesRead() > most) {
            return false;
        }
        read_ += messages.messagesRead();
        for (const auto& [name, all] : times) {
            TimeBuckets& buckets = series_.of(name);
            for (const double time : all) {
                buckets.add(time, 1);
            }
        }
        return true;
    }

    // From the ranges of blocks; with series or filters every so many blocks one is read, and stands for the others.
    // Gives how many messages are selected.
    double estimate(std::int64_t mostRead) {
        double selected = 0;
        table_.reader.useIndex(false);  // a block that is read is read as a whole
        const std::int64_t perBlock = std::max<std::int64_t>(messages_ / static_cast<std::int64_t>(spans_.size()), 1);
        const bool isRead = !series_.isOne() || isFiltered_;
        const std::int64_t sampled = std::max<std::int64_t>(mostRead / perBlock, 1);
        const std::size_t group =
            isRead ? (spans_.size() + static_cast<std::size_t>(sampled) - 1) / static_cast<std::size_t>(sampled) : 1;
        for (std::size_t begin = 0; begin < spans_.size(); begin += group) {
            const std::size_t end = std::min(begin + group, spans_.size());
            std::map<std::string, double> shares{{"", 1.0}};
            if (isRead) {
                shares = sharesOf(begin + (end - begin) / 2);
            }
            for (std::size_t i = begin; i < end; ++i) {
                for (const auto& [name, share] : shares) {
                    const double messages = share * spans_[i].messages;
                    estimated_.try_emplace(name, series_.empty())
                        .first->second.addEvenly(timeOf(spans_[i].firstTime), timeOf(spans_[i].lastTime), messages);
                    selected += messages;
                }
            }
        }
        table_.reader.useIndex(true);
        return selected;
    }

    // Null also at damage, in front of which everything is counted.
    const MessageView* next(Messages& messages) {
        try {
            return messages.next();
        } catch (const Error& error) {
            damage_ = error.what();
            return nullptr;
        }
    }

    double timeOf(std::int64_t time) const { return pageTime(time, table_.sight->unit); }

    // Which part of a block's messages is in which series.
    std::map<std::string, double> sharesOf(std::size_t block) {
        question_.check();
        const BlockSpan& span = spans_[block];
        Query query = table_.selection.query;
        query.from(firstOf(span));
        if (block + 1 < spans_.size()) {
            query.before(firstOf(spans_[block + 1]));
        }
        Messages messages = table_.reader.messages(query, question_.work());
        std::map<std::string, double> shares;
        while (const MessageView* message = next(messages)) {
            if (message->position().block != span.offset) {
                break;
            }
            if (!table_.selection.matches || table_.selection.matches(*message)) {
                shares[series_.isOne() ? "" : series_.nameOf(*message)] += 1.0 / span.messages;
            }
        }
        read_ += span.messages;
        return shares;
    }

    AskedTable& table_;
    const Question& question_;
    const Range& range_;
    bool isFiltered_;
    Series& series_;
    std::vector<BlockSpan> spans_;
    std::int64_t messages_ = 0;
    std::int64_t read_ = 0;
    std::string damage_;
    std::map<std::string, TimeBuckets> estimated_;  // by series
};

Range rangeOf(const Question& question, const std::vector<AskedTable>& tables) {
    Range range{std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest()};
    for (const AskedTable& table : tables) {
        if (table.sight->info.firstTime.has_value() && table.sight->info.lastTime.has_value()) {
            range.from = std::min(range.from, pageTime(*table.sight->info.firstTime, table.sight->unit));
            range.until = std::max(range.until, pageTime(*table.sight->info.lastTime, table.sight->unit) + 1);
        }
    }
    range.from = question.time("from").value_or(range.from);
    range.until = question.time("until").value_or(range.until);
    if (!(range.from < range.until)) {
        if (question.time("from").has_value() || question.time("until").has_value()) {
            throw Refusal(400, "no time lies between from and until, which is not included");
        }
        range = {0, 1};  // there are no messages
    }
    return range;
}

struct TableMark {
    const AskedTable* table = nullptr;
    Mark mark{};
};

// The largest of each kind in the range, by time.
std::vector<TableMark> marksOf(const std::vector<AskedTable>& tables, const Range& range, bool* areComplete) {
    std::array<std::vector<TableMark>, markKindCount> byKind;
    for (const AskedTable& table : tables) {
        const TableMarks::Found found = table.sight->marks->found();
        *areComplete = *areComplete && found.complete;
        for (const Mark& mark : found.marks) {
            if (pageTime(mark.until, table.sight->unit) >= range.from &&
                pageTime(mark.time, table.sight->unit) < range.until) {
                byKind[static_cast<std::size_t>(mark.kind)].push_back({&table, mark});
            }
        }
    }
    std::vector<TableMark> marks;
    for (std::vector<TableMark>& kind : byKind) {
        std::stable_sort(kind.begin(), kind.end(),
                         [](const TableMark& a, const TableMark& b) { return a.mark.count > b.mark.count; });
        kind.resize(std::min(kind.size(), MOST_MARKS / markKindCount));
        std::move(kind.begin(), kind.end(), std::back_inserter(marks));
    }
    std::stable_sort(marks.begin(), marks.end(), [](const TableMark& a, const TableMark& b) {
        return pageTime(a.mark.time, a.table->sight->unit) < pageTime(b.mark.time, b.table->sight->unit);
    });
    return marks;
}

void appendMarks(const std::vector<AskedTable>& tables, const Range& range, Json* json) {
    bool areComplete = true;
    json->key("marks").beginList();
    for (const TableMark& found : marksOf(tables, range, &areComplete)) {
        const std::optional<TimeUnit> unit = found.table->sight->unit;
        json->begin().key("kind").text(markKindName(found.mark.kind)).key("table").text(found.table->sight->id);
        json->key("t").time(found.mark.time, unit).key("until").time(found.mark.until, unit);
        json->key("count").number(found.mark.count).key("at").text(placeText(found.mark.at));
        json->key("text").text(found.mark.text).end();
    }
    json->endList().key("marksComplete").flag(areComplete);
}

}  // namespace

std::string answerTimeline(Question& question) {
    std::vector<AskedTable> tables = question.tables(Question::Filters::exceptUntil);
    const auto buckets = static_cast<std::size_t>(question.number("buckets", 240, 1, 2000));
    const std::string by = question.one("by").value_or("");
    const bool isText = std::any_of(tables.begin(), tables.end(), [&](const AskedTable& table) {
        const std::vector<std::string>& names = table.reader.layout().texts;
        return std::find(names.begin(), names.end(), by) != names.end();
    });
    if (!by.empty() && by != "class" && by != "type" && by != "direction" && !isText) {
        throw Refusal(400, fmt::format("by is class, type, direction or a text field of the tables, not '{}'", by));
    }
    const Range range = rangeOf(question, tables);
    TimeBuckets empty;
    empty.from = range.from;
    empty.step = (range.until - range.from) / static_cast<double>(buckets);
    empty.counts.resize(buckets);
    Series series(by, empty);
    series.of(by.empty() ? "" : "other");
    bool isEstimate = false;
    std::string damages;
    std::int64_t read = 0;
    std::int64_t messages = 0;
    for (AskedTable& table : tables) {
        TableCount count(table, question, range, question.isFiltered(Question::Filters::exceptUntil), series);
        const std::int64_t most = MOST_READ / static_cast<std::int64_t>(tables.size());
        isEstimate = !count.count(most) || isEstimate;
        read += count.read();
        messages += count.messages();
        const std::string& damage = count.damage().empty() ? table.sight->damage : count.damage();
        damages += damage.empty() ? "" : fmt::format("{}{}: {}", damages.empty() ? "" : "; ", table.sight->id, damage);
    }
    Json json;
    json.begin().key("from").number(range.from).key("until").number(range.until).key("step").number(empty.step);
    json.key("series").beginList();
    for (const auto& [name, one] : series.largest()) {
        const bool isEmpty = std::all_of(one.counts.begin(), one.counts.end(), [](double n) { return n == 0; });
        if (isEmpty && name == "other") {
            continue;
        }
        json.begin().key("name").text(name).key("counts").beginList();
        for (const double value : one.counts) {
            isEstimate ? json.number(std::round(value * 10) / 10)
                       : json.number(static_cast<std::int64_t>(std::llround(value)));
        }
        json.endList().end();
    }
    json.endList().key("estimate").flag(isEstimate).key("read").number(read).key("messages").number(messages);
    json.key("damage");
    damages.empty() ? json.null() : json.text(damages);
    appendMarks(tables, range, &json);
    json.end();
    return json.take();
}

}  // namespace tabulo::tool::serve
