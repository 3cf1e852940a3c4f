#include <utility>

#include "api/call.h"
#include "api/query_state.h"

namespace tabulo {

namespace {

using State = api::TextConditionState;

std::string checked(std::string_view value) {
    if (value.find('\0') != std::string_view::npos) {
        api::refuse("a text to compare with holds a zero byte");
    }
    return std::string(value);
}

// What lies strictly between two texts, and those of them that are wanted.
State between(std::optional<std::string> first, std::optional<std::string> last, bool withFirst, bool withLast) {
    State state;
    if (withFirst) {
        state.values.push_back(*first);
    }
    if (withLast) {
        state.values.push_back(*last);
    }
    state.pairs.emplace_back(std::move(first), std::move(last));
    return state;
}

bool hasTexts(const State& state) {
    return !state.values.empty() || !state.pairs.empty();
}

template <typename Values>
State anyOfThese(const Values& values) {
    State state;
    for (const auto& value : values) {
        state.values.push_back(checked(value));
    }
    if (state.values.empty()) {
        api::refuse("a set of texts to compare with is empty");
    }
    return state;
}

}  // namespace

TextCondition::TextCondition(api::TextConditionState state) : state_(std::make_shared<const State>(std::move(state))) {
}

TextCondition TextCondition::anyOf(std::initializer_list<std::string_view> values) {
    return TextCondition(anyOfThese(values));
}

TextCondition TextCondition::anyOf(std::span<const std::string> values) {
    return TextCondition(anyOfThese(values));
}

TextCondition TextCondition::between(std::string_view first, std::string_view last) {
    if (last < first) {
        api::refuse("the range of texts from '" + std::string(first) + "' to '" + std::string(last) + "' is reversed");
    }
    return TextCondition(tabulo::between(checked(first), checked(last), true, true));
}

TextCondition TextCondition::above(std::string_view value) {
    return TextCondition(tabulo::between(checked(value), std::nullopt, false, false));
}

TextCondition TextCondition::atLeast(std::string_view value) {
    return TextCondition(tabulo::between(checked(value), std::nullopt, true, false));
}

TextCondition TextCondition::below(std::string_view value) {
    if (value.empty()) {
        api::refuse("no text is below the empty one");
    }
    return TextCondition(tabulo::between(std::nullopt, checked(value), false, false));
}

TextCondition TextCondition::atMost(std::string_view value) {
    return TextCondition(tabulo::between(std::nullopt, checked(value), false, true));
}

TextCondition TextCondition::absent() {
    State state;
    state.absent = true;
    return TextCondition(std::move(state));
}

TextCondition TextCondition::ignoringCase() const {
    if (!state_->pairs.empty()) {
        api::refuse("ranges of texts are compared with case");
    }
    State state = *state_;
    state.ignoresCase = true;
    return TextCondition(std::move(state));
}

TextCondition TextCondition::operator||(const TextCondition& other) const {
    const State& right = *other.state_;
    if (state_->ignoresCase != right.ignoresCase && hasTexts(*state_) && hasTexts(right)) {
        api::refuse("only one of two conditions on a text disregards the case");
    }
    State state = *state_;
    state.values.insert(state.values.end(), right.values.begin(), right.values.end());
    state.pairs.insert(state.pairs.end(), right.pairs.begin(), right.pairs.end());
    state.absent = state.absent || right.absent;
    state.ignoresCase = hasTexts(*state_) ? state_->ignoresCase : right.ignoresCase;
    return TextCondition(std::move(state));
}

}  // namespace tabulo
