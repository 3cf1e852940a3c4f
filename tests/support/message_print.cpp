// What a test's report says of a message: apart from the rest, which programs without the test library use too.
#include <gtest/gtest.h>

#include <ostream>

#include "tests/support/message.h"

namespace tabulo::internal::test {

void PrintTo(const Message& message, std::ostream* out) {
    const MessageMetadata& metadata = message.metadata;
    *out << "\n{uniformId " << metadata.uniformId << ", seqNum " << metadata.seqNum << ", prevSeqNum "
         << metadata.prevSeqNum << ", connMsgId " << metadata.connMsgId << ", timestamp " << metadata.timestamp
         << ", msgType " << ::testing::PrintToString(metadata.msgType) << ", possDup "
         << static_cast<int>(metadata.isPossDupFlag) << ", outOfSequence "
         << static_cast<int>(metadata.isOutOfSequence);
    for (const std::optional<std::string>& text : message.strings) {
        *out << ", " << (text ? ::testing::PrintToString(*text) : "absent");
    }
    for (const NumericValue& number : message.numbers) {
        switch (number.type) {
            case NumericType::absent:
                *out << ", absent";
                break;
            case NumericType::doubleValue:
                *out << ", double " << number.doubleValue;
                break;
            case NumericType::longValue:
                *out << ", long " << number.longValue;
                break;
        }
    }
    *out << "}";
}

}  // namespace tabulo::internal::test
