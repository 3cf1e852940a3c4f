#include <utility>

#include "api/call.h"
#include "api/layout.h"
#include "api/query_state.h"
#include "query/match.h"

namespace tabulo {

namespace api {

struct MatcherState {
    TableState table;
    internal::QueryConditionsPtr conditions;
    bool inverted = false;
    // The table of the message that was tested last, whose layout is known to be the matcher's.
    mutable std::shared_ptr<const TableState> last;
};

}  // namespace api

Matcher::Matcher(const Query& query, const Layout& layout) {
    auto state = std::make_unique<api::MatcherState>();
    state->table.layout = layout;
    state->table.numbers = api::layout_numbers(layout);
    state->conditions = api::query_build(query.state(), state->table);
    state->inverted = query.state().inverted;
    state_ = std::move(state);
}

Matcher::Matcher(Matcher&&) noexcept = default;
Matcher& Matcher::operator=(Matcher&&) noexcept = default;
Matcher::~Matcher() = default;

bool Matcher::operator()(const MessageView& message) const {
    const api::MatcherState& state = api::use(state_, "the matcher");
    const api::MessageState& tested = message.state();
    if (state.last != tested.table) {
        if (tested.table->layout != state.table.layout) {
            api::refuse("the message is of a table with another layout than the matcher's");
        }
        state.last = tested.table;
    }
    return internal::query_messageMatches(
               *state.conditions, internal::message_view(*tested.message, state.table.numbers)) != state.inverted;
}

}  // namespace tabulo
