// How an iterator moves to its next match, in either direction.
#pragma once

#include "core/error_codes.h"
#include "query/message_table_iterator.h"

namespace tabulo::internal {

// Both go on from the iterator's place in `file`, the table's master file of this moment, and set *end to false when a
// match has become current. Errors as mtIterator_next.
ErrorCode iteratorStep_forward(MessageTableIterator* iterator, TableFile* file, bool* end) noexcept;
ErrorCode iteratorStep_backward(MessageTableIterator* iterator, TableFile* file, bool* end) noexcept;

// What iteratorStep_forward does among the frames that are in memory already, without a call to the system or a line of
// the log: *end stays true behind the last one of them, from where iteratorStep_forward goes on.
ErrorCode iteratorStep_loaded(MessageTableIterator* iterator, bool* end) noexcept;

}  // namespace tabulo::internal
