#include "tests/damage/damage_messages.h"

namespace tabulo::internal::test {

TableShape damageShape() {
    TableShape shape;
    shape.messagesPerBlock = 4;
    shape.summarisedStringFieldCount = 0;  // the configured field makes it one
    shape.stringNames = {"Symbol"};
    shape.numericNames = {"Price", "Size"};
    return shape;
}

std::vector<Message> damageMessages(std::int32_t count) {
    constexpr std::int32_t classes[] = {APP_TO_CLASS, APP_FROM_CLASS, ADMIN_TO_CLASS, ADMIN_FROM_CLASS,
                                        APP_TO_CLASS, APP_TO_CLASS,   RESENT_CLASS};
    std::vector<Message> messages;
    for (std::int32_t n = 1; n <= count; ++n) {
        Message message = bareMessage(n, damageShape());
        MessageMetadata& metadata = message.metadata;
        metadata.seqNum = n % 5 == 4 ? -n : n;
        metadata.prevSeqNum = n % 5 == 0 ? 1 - n : 0;
        metadata.connMsgId = CLASS_BASES[classes[n % 7]] + n;
        metadata.timestamp = 1000 * n;
        metadata.isPossDupFlag = n % 4 == 3 ? 1 : 0;
        metadata.isOutOfSequence = n % 6 == 5 ? 1 : 0;
        setMsgType(&metadata, n % 3 == 0 ? "AE" : "D");
        message.strings[0] = withNul("A" + std::to_string(n % 3));
        message.strings[1] = n % 2 == 0 ? std::optional(withNul("")) : std::nullopt;
        message.strings[2] = n % 7 == 6 ? std::nullopt : std::optional(withNul("S" + std::to_string(n % 10)));
        message.strings[3] = withNul("35=D|34=" + std::to_string(n));
        if (n % 4 != 2) {
            message.numbers[0] = numericValue_ofDouble(10.5 + n);
        }
        if (n % 3 != 0) {
            message.numbers[1] = numericValue_ofLong(std::int64_t{100} * n);
        }
        messages.push_back(message);
    }
    return messages;
}

}  // namespace tabulo::internal::test
