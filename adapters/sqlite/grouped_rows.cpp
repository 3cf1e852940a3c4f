#include "adapters/sqlite/grouped_rows.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "tabulo/error.h"

namespace tabulo::sqlite {

namespace {

// What values that are kept at a time may take.
constexpr std::size_t MOST_BYTES = 16'000'000;

// The length in front of a value, and 1 more; 0 for NULL.
using Length = std::uint32_t;

void append(const Text& text, std::string* key) {
    const auto length = static_cast<Length>(text.has_value() ? text->size() + 1 : 0);
    key->append(reinterpret_cast<const char*>(&length), sizeof(length));
    key->append(text.value_or(std::string_view()));
}

// Takes the value in front from the rest of a key.
Text takeFirst(std::string_view* rest) {
    Length length = 0;
    std::memcpy(&length, rest->data(), sizeof(length));
    rest->remove_prefix(sizeof(length));
    if (length == 0) {
        return std::nullopt;
    }
    const std::string_view value = rest->substr(0, length - 1);
    rest->remove_prefix(length - 1);
    return value;
}

}  // namespace

GroupKeys::GroupKeys(const std::vector<Column>& columns, const std::vector<GroupTerm>& terms) {
    for (const GroupTerm& term : terms) {
        parts_.push_back({term.column, columns[static_cast<std::size_t>(term.column)], term.isDescending});
    }
}

bool GroupKeys::canTake(ColumnKind kind) noexcept {
    switch (kind) {
        case ColumnKind::table:
        case ColumnKind::messageClass:
        case ColumnKind::type:
        case ColumnKind::text0:
        case ColumnKind::text1:
        case ColumnKind::text:
            return true;
        default:
            return false;
    }
}

void GroupKeys::take(const MessageView& message, std::string* key) const {
    key->clear();
    for (const Part& part : parts_) {
        append(textOf(message, part.column), key);
    }
}

bool GroupKeys::isBefore(const std::string& a, const std::string& b) const {
    std::string_view restA = a;
    std::string_view restB = b;
    for (const Part& part : parts_) {
        const Text valueA = takeFirst(&restA);
        const Text valueB = takeFirst(&restB);
        if (valueA != valueB) {
            return (valueA < valueB) != part.isDescending;
        }
    }
    return false;
}

void GroupKeys::give(sqlite3_context* context, const std::string& key, int column) const {
    std::string_view rest = key;
    for (const Part& part : parts_) {
        const Text value = takeFirst(&rest);
        if (part.number == column) {
            giveText(context, value);
            return;
        }
    }
    sqlite3_result_null(context);
}

GroupedRows::GroupedRows(GroupKeys keys, std::function<std::unique_ptr<MessageStream>()> open, std::size_t mostValues)
    : keys_(std::move(keys)), open_(std::move(open)), mostValues_(mostValues) {
    gather();
}

bool GroupedRows::isWanted(const std::string& key) const {
    return (!from_.has_value() || keys_.isBefore(*from_, key)) && (!last_.has_value() || !keys_.isBefore(*last_, key));
}

// Counts the messages of each value behind those that were given, or of the first of them when there are many.
void GroupedRows::gather() {
    groups_.clear();
    rowids_.clear();
    counts_.clear();
    bytes_ = 0;
    at_ = 0;
    given_ = 0;
    const std::unique_ptr<MessageStream> stream = open_();
    std::string key;
    for (const MessageView* message = stream->next(); message != nullptr; message = stream->next()) {
        keys_.take(*message, &key);
        if (const auto found = counts_.find(std::string_view(key)); found != counts_.end()) {
            found->second += 1;
        } else if (isWanted(key)) {
            counts_.emplace(key, 1);
            bytes_ += key.size();
            if (counts_.size() > mostValues_ || bytes_ > MOST_BYTES) {
                halve();
            }
        }
    }
    groups_.reserve(counts_.size());
    for (const auto& [value, count] : counts_) {
        groups_.push_back({&value, count});
    }
    std::sort(groups_.begin(), groups_.end(),
              [this](const Group& a, const Group& b) { return keys_.isBefore(*a.key, *b.key); });
}

// Leaves the second half of the values to another time.
void GroupedRows::halve() {
    std::vector<std::string> values;
    for (const auto& entry : counts_) {
        values.push_back(entry.first);
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) / 2);
    std::nth_element(values.begin(), middle, values.end(),
                     [this](const std::string& a, const std::string& b) { return keys_.isBefore(a, b); });
    last_ = *middle;
    std::erase_if(counts_, [this](const auto& entry) { return !isWanted(entry.first); });
    bytes_ = 0;
    for (const auto& entry : counts_) {
        bytes_ += entry.first.size();
    }
}

void GroupedRows::next() {
    given_ += 1;
    if (given_ < groups_[at_].count) {
        return;
    }
    given_ = 0;
    at_ += 1;
    if (isAtEnd() && last_.has_value()) {
        from_ = std::exchange(last_, std::nullopt);
        gather();
    }
}

// Messages with the same values are the same to the statement, but for their places: which comes first does not matter.
sqlite3_int64 GroupedRows::rowid() {
    if (rowids_.empty()) {
        const std::unique_ptr<MessageStream> stream = open_();
        std::string key;
        for (const MessageView* message = stream->next(); message != nullptr; message = stream->next()) {
            keys_.take(*message, &key);
            if (const auto found = counts_.find(std::string_view(key)); found != counts_.end()) {
                rowids_[&found->first].push_back(rowidOf(stream->source(), *message));
            }
        }
    }
    return rowids_.at(groups_[at_].key)[static_cast<std::size_t>(given_)];
}

namespace {

// Tables of fewer blocks are sorted at once.
constexpr std::int64_t FEWEST_BLOCKS = 8;
constexpr int SAMPLES = 4;

// The values that stand in the block at a message, as many as a block has messages.
std::set<std::string> valuesAt(Reader& reader, std::int64_t ordinal, const GroupKeys& keys) {
    std::set<std::string> values;
    const std::optional<Position> position = reader.positionOf(ordinal);
    if (position.has_value()) {
        Query query;
        query.from(*position);
        Messages messages = reader.messages(query);
        std::string key;
        for (std::int32_t left = reader.layout().messagesPerBlock; left > 0 && messages.next() != nullptr; --left) {
            keys.take(*messages.current(), &key);
            values.insert(key);
        }
    }
    return values;
}

// Values that come again from block to block are few; of others there are the more, the more blocks.
bool sampleHasFew(TableSet& tables, const GroupKeys& keys) {
    std::set<std::string> all;
    std::size_t sum = 0;
    for (const auto& file : tables.files()) {
        const std::int32_t perBlock = file == nullptr ? 0 : file->reader().layout().messagesPerBlock;
        const auto count = file == nullptr ? 0 : static_cast<std::int64_t>(file->messageCount());
        for (int sample = 0; sample < SAMPLES && file != nullptr && count >= FEWEST_BLOCKS * perBlock; ++sample) {
            std::set<std::string> values = valuesAt(file->reader(), (count - perBlock) / (SAMPLES - 1) * sample, keys);
            sum += values.size();
            all.merge(values);
        }
    }
    return sum > 0 && all.size() * 2 <= sum;
}

}  // namespace

bool haveFewValues(TableSet& tables, const std::vector<Column>& columns, const std::vector<GroupTerm>& terms) {
    double messages = 0;
    for (const auto& file : tables.files()) {
        messages += file == nullptr ? 0 : file->messageCount();
    }
    std::vector<int> numbers;
    std::transform(terms.begin(), terms.end(), std::back_inserter(numbers),
                   [](const GroupTerm& t) { return t.column; });
    const auto known = tables.guesses.find(numbers);
    if (known != tables.guesses.end() && messages <= 2 * known->second.messages) {
        return known->second.haveFewValues;
    }
    bool haveFew = false;
    try {
        haveFew = sampleHasFew(tables, GroupKeys(columns, terms));
    } catch (const Error&) {  // whoever reads what is damaged tells
    }
    tables.guesses.insert_or_assign(numbers, TableSet::Guess{messages, haveFew});
    return haveFew;
}

}  // namespace tabulo::sqlite
