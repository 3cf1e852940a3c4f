#include "tabulo/reader.h"

namespace tabulo {

ClassCounts countByClass(const std::filesystem::path& path, const Work& work) {
    ClassCounts counts;
    Messages messages = Reader(path).messages(Query(), work);
    for (const MessageView& message : messages) {
        const std::optional<MessageClass> messageClass = message.messageClass();
        (messageClass ? counts.messages[static_cast<std::size_t>(*messageClass)] : counts.withoutClass) += 1;
        counts.total += 1;
    }
    counts.complete = messages.ending() == Ending::data;
    return counts;
}

}  // namespace tabulo
