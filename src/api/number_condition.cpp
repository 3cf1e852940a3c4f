#include <limits>
#include <utility>

#include "api/call.h"
#include "api/query_state.h"

namespace tabulo {

namespace {

template <typename T>
using State = api::NumberConditionState<T>;

template <typename T>
constexpr T LOWEST = std::numeric_limits<T>::has_infinity ? -std::numeric_limits<T>::infinity()
                                                          : std::numeric_limits<T>::min();
template <typename T>
constexpr T HIGHEST = std::numeric_limits<T>::has_infinity ? std::numeric_limits<T>::infinity()
                                                           : std::numeric_limits<T>::max();

template <typename T>
T checked(T value) {
    if (value != value) {  // a NaN; NOLINT(misc-redundant-expression)
        api::refuse("a number to compare with is not a number");
    }
    return value;
}

// What lies between two numbers, which may be one.
template <typename T>
State<T> between(T first, T last, bool withFirst, bool withLast) {
    if (last < first || (!(first < last) && !(withFirst && withLast))) {
        api::refuse("no number lies in the range from " + std::to_string(first) + " to " + std::to_string(last));
    }
    State<T> state;
    state.minimums.push_back(first);
    state.maximums.push_back(last);
    if (withFirst) {
        state.values.push_back(first);
    }
    if (withLast) {
        state.values.push_back(last);
    }
    return state;
}

template <typename T, typename Values>
State<T> anyOfThese(const Values& values) {
    State<T> state;
    for (const T value : values) {
        state.values.push_back(checked(value));
    }
    if (state.values.empty()) {
        api::refuse("a set of numbers to compare with is empty");
    }
    return state;
}

}  // namespace

template <typename T>
NumberCondition<T>::NumberCondition(api::NumberConditionState<T> state)
    : state_(std::make_shared<const State<T>>(std::move(state))) {
}

template <typename T>
NumberCondition<T> NumberCondition<T>::anyOf(std::initializer_list<T> values) {
    return NumberCondition(anyOfThese<T>(values));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::anyOf(std::span<const T> values) {
    return NumberCondition(anyOfThese<T>(values));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::between(T first, T last) {
    return NumberCondition(tabulo::between(checked(first), checked(last), true, true));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::above(T value) {
    return NumberCondition(tabulo::between(checked(value), HIGHEST<T>, false, true));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::atLeast(T value) {
    return NumberCondition(tabulo::between(checked(value), HIGHEST<T>, true, true));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::below(T value) {
    return NumberCondition(tabulo::between(LOWEST<T>, checked(value), true, false));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::atMost(T value) {
    return NumberCondition(tabulo::between(LOWEST<T>, checked(value), true, true));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::absent() {
    State<T> state;
    state.absent = true;
    return NumberCondition(std::move(state));
}

template <typename T>
NumberCondition<T> NumberCondition<T>::operator||(const NumberCondition& other) const {
    const State<T>& right = *other.state_;
    State<T> state = *state_;
    state.values.insert(state.values.end(), right.values.begin(), right.values.end());
    state.minimums.insert(state.minimums.end(), right.minimums.begin(), right.minimums.end());
    state.maximums.insert(state.maximums.end(), right.maximums.begin(), right.maximums.end());
    state.absent = state.absent || right.absent;
    return NumberCondition(std::move(state));
}

template class NumberCondition<double>;
template class NumberCondition<std::int64_t>;

}  // namespace tabulo
