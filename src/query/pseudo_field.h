// The metadata of a message as numeric fields: a numeric field index from the number of configured fields N on.
#pragma once

#include <cstdint>

#include "messagetable/message_metadata.h"

namespace tabulo::internal {

// Field index minus N.
enum PseudoField : std::int32_t {
    PSEUDO_UNIFORM_ID = 0,
    PSEUDO_SEQ_NUM = 1,
    PSEUDO_PREV_SEQ_NUM = 2,
    PSEUDO_CONN_MSG_ID = 3,
    PSEUDO_TIMESTAMP = 4,
    PSEUDO_POSS_DUP = 5,
    PSEUDO_OUT_OF_SEQUENCE = 6,
};
inline constexpr std::int32_t PSEUDO_FIELD_COUNT = 7;

// The field's value; a flag is 0 or 1, whatever other byte is stored for it. 0 for a number that names no field.
std::int64_t pseudoField_value(const MessageMetadata& metadata, std::int32_t field) noexcept;

}  // namespace tabulo::internal
