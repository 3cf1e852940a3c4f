// The shape and the messages of the tables that are damaged.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {

// The lowest connection message id of each class, in the order of the classes' numbers.
inline constexpr std::int32_t CLASS_BASES[] = {536870911, 0, 1342177279, 1073741823, 1610612735};
inline constexpr std::int32_t APP_FROM_CLASS = 0;
inline constexpr std::int32_t APP_TO_CLASS = 1;
inline constexpr std::int32_t ADMIN_FROM_CLASS = 2;
inline constexpr std::int32_t ADMIN_TO_CLASS = 3;
inline constexpr std::int32_t RESENT_CLASS = 4;

// Four messages a block, one configured string field and two numeric ones, and one filter a footer.
TableShape damageShape();
// Messages of all classes, with absent fields, pending and out of sequence ones; their uniform ids count from 1 on.
std::vector<Message> damageMessages(std::int32_t count);

}  // namespace tabulo::internal::test
