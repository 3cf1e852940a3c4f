// What an iterator has found, as one message.
#pragma once

#include <cstddef>

#include "query/message_table_iterator.h"

namespace tabulo::internal::test {

// The current message of an iterator, by its getters; without fields when there is none. Valid until its next step.
inline MessageView currentMessage(const MessageTableIterator* iterator) {
    return {mtIterator_getMetadata(iterator),
            {mtIterator_getStringValues(iterator), static_cast<std::size_t>(iterator->stringValueCount)},
            {mtIterator_getNumericValues(iterator), static_cast<std::size_t>(iterator->numericValueCount)}};
}

}  // namespace tabulo::internal::test
