#include "tabulo/query.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "api/call.h"
#include "api/query_state.h"
#include "messagetable/message_class.h"
#include "messagetable/message_metadata.h"

namespace tabulo {

namespace api {

namespace {

using State = QueryState;

template <typename T>
std::string textOf(const Range<T>& range) {
    return std::to_string(range.first) + " to " + std::to_string(range.last);
}

// Narrows a range by another one, whose missing ends are open.
template <typename T>
std::optional<Range<T>> narrowed(const char* what, const std::optional<Range<T>>& before, std::optional<T> first,
                                 std::optional<T> last) {
    if (!first.has_value() && !last.has_value()) {
        refuse("a range of " + std::string(what) + " without a first and a last one");
    }
    Range<T> range{first.value_or(std::numeric_limits<T>::min()), last.value_or(std::numeric_limits<T>::max())};
    if (range.last < range.first) {
        refuse("the range of " + std::string(what) + " from " + textOf(range) + " is reversed");
    }
    if (before.has_value()) {
        const Range<T> both{std::max(before->first, range.first), std::min(before->last, range.last)};
        if (both.last < both.first) {
            refuse("no " + std::string(what) + " lie in both ranges, " + textOf(*before) + " and " + textOf(range));
        }
        range = both;
    }
    return range;
}

std::optional<bool> narrowed(const char* what, const std::optional<bool>& before, bool value) {
    if (before.has_value() && *before != value) {
        refuse("a message cannot be " + std::string(what) + " and not");
    }
    return value;
}

bool isSelected(const internal::ClassIdRanges& ids, std::int32_t id) {
    const auto& range = ids[static_cast<std::size_t>(internal::classifyConnMsgId(id))];
    return range.has_value() && range->first <= id && id <= range->last;
}

// Throws when the ranges of ids and the set of them leave nothing.
void checkIds(const State& query) {
    bool isEmpty = query.ids.has_value() &&
                   std::none_of(query.ids->begin(), query.ids->end(), [](const auto& ids) { return ids.has_value(); });
    if (query.ids.has_value() && query.idSet.has_value()) {
        isEmpty = std::none_of(query.idSet->begin(), query.idSet->end(),
                               [&](std::int32_t id) { return isSelected(*query.ids, id); });
    }
    if (isEmpty || (query.idSet.has_value() && query.idSet->empty())) {
        refuse("the conditions on ids exclude each other");
    }
}

void narrowIds(State* query, const internal::ClassIdRanges& ids) {
    if (!query->ids.has_value()) {
        query->ids = ids;
    }
    for (std::size_t i = 0; i < ids.size(); ++i) {
        auto& range = (*query->ids)[i];
        if (range.has_value() && ids[i].has_value()) {
            range = {std::max(range->first, ids[i]->first), std::min(range->last, ids[i]->last)};
        }
        if (!ids[i].has_value() || (range.has_value() && range->last < range->first)) {
            range.reset();
        }
    }
    checkIds(*query);
}

// The class of a range of ids, both of whose ends must be in it.
std::size_t classOfRange(const IdRange& ids) {
    const std::optional<MessageClass> first = classOf(ids.first);
    const std::string text = std::to_string(ids.first) + " to " + std::to_string(ids.last);
    if (ids.last < ids.first) {
        refuse("the range of ids from " + text + " is reversed");
    }
    if (!first.has_value()) {
        refuse("the ids from " + text + " begin below 0, and belong to no class");
    }
    if (classOf(ids.last) != first) {
        refuse("the ids from " + text + " are of more than one class; the ids of " + std::string(className(*first)) +
               " end at " + std::to_string(lastId(*first)));
    }
    return static_cast<std::size_t>(*first);
}

std::string checkedType(std::string_view type) {
    if (type.size() > static_cast<std::size_t>(internal::MSG_TYPE_LENGTH)) {
        refuse("the type '" + std::string(type) + "' has more than five characters");
    }
    if (type.find('\0') != std::string_view::npos) {
        refuse("a type holds a zero byte");
    }
    return std::string(type);
}

template <typename Types>
std::vector<std::string> checkedTypes(const Types& types) {
    std::vector<std::string> checked;
    for (const auto& type : types) {
        checked.push_back(checkedType(type));
    }
    if (checked.empty()) {
        refuse("a set of types is empty");
    }
    std::sort(checked.begin(), checked.end());
    return checked;
}

void checkTypes(const State& query) {
    const auto isExcluded = [&](const std::string& type) {
        return std::find(query.excludedTypes.begin(), query.excludedTypes.end(), type) != query.excludedTypes.end();
    };
    if (query.types.has_value() && std::all_of(query.types->begin(), query.types->end(), isExcluded)) {
        refuse("the conditions on types exclude each other");
    }
}

template <typename T>
std::vector<T> inBoth(const std::vector<T>& left, const std::vector<T>& right) {
    std::vector<T> both;
    std::set_intersection(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(both));
    return both;
}

void narrowTypes(State* query, std::vector<std::string> types) {
    query->types = query->types.has_value() ? inBoth(*query->types, types) : std::move(types);
    checkTypes(*query);
}

void excludeTypes(State* query, const std::vector<std::string>& types) {
    query->excludedTypes.insert(query->excludedTypes.end(), types.begin(), types.end());
    checkTypes(*query);
}

template <typename Classes>
internal::ClassIdRanges rangesOf(const Classes& classes) {
    internal::ClassIdRanges ranges;
    for (const MessageClass messageClass : classes) {
        if (className(messageClass).empty()) {
            refuse("there is no class " + std::to_string(static_cast<std::int32_t>(messageClass)));
        }
        ranges[static_cast<std::size_t>(messageClass)] = {firstId(messageClass), lastId(messageClass)};
    }
    if (std::begin(classes) == std::end(classes)) {
        refuse("a set of classes is empty");
    }
    return ranges;
}

}  // namespace

}  // namespace api

Query::Query() : state_(std::make_unique<api::QueryState>()) {
}
Query::Query(const Query& other) : state_(std::make_unique<api::QueryState>(*other.state_)) {
}
Query& Query::operator=(const Query& other) {
    if (this != &other) {
        state_ = std::make_unique<api::QueryState>(*other.state_);
    }
    return *this;
}
Query::~Query() = default;

// A condition is tried on a copy, which replaces the query when it holds.
template <typename Change>
Query& Query::change(const Change& change) {
    auto changed = std::make_unique<api::QueryState>(*state_);
    change(changed.get());
    state_ = std::move(changed);
    return *this;
}

Query& Query::backward() {
    state_->backward = true;
    return *this;
}

Query& Query::inverted() {
    state_->inverted = true;
    return *this;
}

Query& Query::from(const Position& position) {
    state_->from = position;
    return *this;
}

Query& Query::before(const Position& position) {
    state_->before = position;
    return *this;
}

Query& Query::seqNums(std::optional<std::int32_t> first, std::optional<std::int32_t> last) {
    state_->seqNums = api::narrowed("sequence numbers", state_->seqNums, first, last);
    return *this;
}

Query& Query::uniformIds(std::optional<std::int32_t> first, std::optional<std::int32_t> last) {
    state_->uniformIds = api::narrowed("uniform ids", state_->uniformIds, first, last);
    return *this;
}

Query& Query::times(std::optional<std::int64_t> first, std::optional<std::int64_t> last) {
    state_->times = api::narrowed("times", state_->times, first, last);
    return *this;
}

Query& Query::ids(std::int32_t first, std::int32_t last) {
    const IdRange range{first, last};
    return ids(std::span(&range, 1));
}

Query& Query::ids(std::span<const IdRange> ranges) {
    if (ranges.empty()) {
        api::refuse("a set of ranges of ids is empty");
    }
    internal::ClassIdRanges ids;
    for (const IdRange& range : ranges) {
        auto& ofClass = ids[api::classOfRange(range)];
        if (ofClass.has_value()) {
            api::refuse("two ranges of ids are of one class");
        }
        ofClass = {range.first, range.last};
    }
    return change([&](api::QueryState* query) { api::narrowIds(query, ids); });
}

Query& Query::idSet(std::span<const std::int32_t> ids) {
    std::vector<std::int32_t> sorted(ids.begin(), ids.end());
    std::sort(sorted.begin(), sorted.end());
    if (sorted.empty()) {
        api::refuse("a set of ids is empty");
    }
    if (sorted.front() < 0) {
        api::refuse("the id " + std::to_string(sorted.front()) + " belongs to no class");
    }
    return change([&](api::QueryState* query) {
        query->idSet = query->idSet.has_value() ? api::inBoth(*query->idSet, sorted) : sorted;
        api::checkIds(*query);
    });
}

Query& Query::classes(std::initializer_list<MessageClass> classes) {
    return change([&](api::QueryState* query) { api::narrowIds(query, api::rangesOf(classes)); });
}

Query& Query::classes(std::span<const MessageClass> classes) {
    return change([&](api::QueryState* query) { api::narrowIds(query, api::rangesOf(classes)); });
}

Query& Query::possDup(bool value) {
    state_->possDup = api::narrowed("a possible duplicate", state_->possDup, value);
    return *this;
}

Query& Query::outOfSequence(bool value) {
    state_->outOfSequence = api::narrowed("out of sequence", state_->outOfSequence, value);
    return *this;
}

Query& Query::types(std::initializer_list<std::string_view> types) {
    return change([&](api::QueryState* query) { api::narrowTypes(query, api::checkedTypes(types)); });
}

Query& Query::types(std::span<const std::string> types) {
    return change([&](api::QueryState* query) { api::narrowTypes(query, api::checkedTypes(types)); });
}

Query& Query::excludeTypes(std::initializer_list<std::string_view> types) {
    return change([&](api::QueryState* query) { api::excludeTypes(query, api::checkedTypes(types)); });
}

Query& Query::excludeTypes(std::span<const std::string> types) {
    return change([&](api::QueryState* query) { api::excludeTypes(query, api::checkedTypes(types)); });
}

Query& Query::text(std::string_view field, const TextCondition& condition) {
    state_->texts.push_back({std::string(field), condition.state()});
    return *this;
}

Query& Query::text(std::size_t field, const TextCondition& condition) {
    state_->texts.push_back({field, condition.state()});
    return *this;
}

Query& Query::text(BuiltInText field, const TextCondition& condition) {
    if (field == BuiltInText::type && condition.state().ignoresCase) {
        api::refuse("types are compared with case");
    }
    state_->texts.push_back({field, condition.state()});
    return *this;
}

Query& Query::number(std::string_view field, const DoubleCondition& condition) {
    state_->numbers.push_back({std::string(field), condition.state()});
    return *this;
}

Query& Query::number(std::string_view field, const IntegerCondition& condition) {
    state_->numbers.push_back({std::string(field), condition.state()});
    return *this;
}

Query& Query::number(std::size_t field, const DoubleCondition& condition) {
    state_->numbers.push_back({field, condition.state()});
    return *this;
}

Query& Query::number(std::size_t field, const IntegerCondition& condition) {
    state_->numbers.push_back({field, condition.state()});
    return *this;
}

Query& Query::number(BuiltInNumber field, const DoubleCondition& condition) {
    state_->numbers.push_back({field, condition.state()});
    return *this;
}

Query& Query::number(BuiltInNumber field, const IntegerCondition& condition) {
    state_->numbers.push_back({field, condition.state()});
    return *this;
}

}  // namespace tabulo
