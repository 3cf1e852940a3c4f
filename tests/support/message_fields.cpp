#include "tests/support/message_fields.h"

#include <algorithm>

namespace tabulo::test {

std::string withNul(std::string_view text) {
    return std::string(text) + '\0';
}

void setMsgType(MessageMetadata* metadata, std::string_view msgType) {
    metadata->msgType.fill('\0');
    std::copy_n(msgType.begin(), std::min<std::size_t>(msgType.size(), MSG_TYPE_LENGTH), metadata->msgType.begin());
}

}  // namespace tabulo::test
