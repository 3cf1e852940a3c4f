// Messages as answers tell them.
#pragma once

#include <optional>

#include "tabulo/fix.h"
#include "tabulo/message.h"
#include "tool/serve/json.h"
#include "tool/serve/table_sight.h"

namespace tabulo::tool::serve {

// Whether it went out, for the first time or again; none for a message without a class.
std::optional<bool> wentOut(const MessageView& message) noexcept;

// The members of a message in an object that has been begun: as /api/messages has them.
void appendMessage(const MessageView& message, const TableSight& table, Json* json);
// All of it, for /api/message: with its fields by tag, its bytes, and how the command gives it.
void appendWholeMessage(const MessageView& message, const TableSight& table, Json* json);

}  // namespace tabulo::tool::serve
