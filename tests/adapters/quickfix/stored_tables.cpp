// What stands in the tables, read with the public API: C++20, and none of the engine's headers.
#include <string>
#include <vector>

#include "tabulo/reader.h"

namespace tabulo::quickfix::test {

std::vector<std::string> storedIn(const std::string& path) {
    std::vector<std::string> lines;
    Reader reader{path};
    Messages messages = reader.messages();
    while (const MessageView* message = messages.next()) {
        const auto messageClass = message->messageClass();
        std::string line(messageClass.has_value() ? className(*messageClass) : "-");
        line += ' ' + std::string(message->type()) + ' ' + std::to_string(message->seqNum());
        for (std::size_t i = 0; i < message->textCount(); ++i) {
            if (message->text(i).has_value()) {
                line += ' ' + std::string(*message->text(i));
            }
        }
        line += message->possDup() ? " dup" : "";
        line += message->outOfSequence() ? " out" : "";
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<int> uniformIdsIn(const std::string& path) {
    std::vector<int> ids;
    Reader reader{path};
    Messages messages = reader.messages();
    while (const MessageView* message = messages.next()) {
        ids.push_back(message->uniformId());
    }
    return ids;
}

}  // namespace tabulo::quickfix::test
