// C++20, for the tables; none of the engine's headers, which are C++14 at most.
#include "examples/quickfix/sent_messages.h"

#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "tabulo/error.h"
#include "tabulo/fix.h"
#include "tabulo/reader.h"
#include "tabulo/table_info.h"

namespace {

bool hasField(std::string_view wire, std::int32_t tag, const std::string& value) {
    return tabulo::fixValue(wire, tag) == std::optional<std::string_view>(value);
}

}  // namespace

bool SentMessages::has(const std::string& sender, const std::string& target, const std::string& type,
                       const std::string& clOrdId, const std::string& execId) const {
    try {
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            if (!entry.is_regular_file() || tabulo::inspect(entry.path()).kind != tabulo::TableKind::messages) {
                continue;
            }
            tabulo::Reader table(entry.path());
            tabulo::Query query;
            query.classes({tabulo::MessageClass::appTo})
                .types({type})
                .text("ClOrdID", tabulo::TextCondition::anyOf({clOrdId}));
            auto messages = table.messages(query);
            for (const tabulo::MessageView& message : messages) {
                const std::string_view wire = message.wire().value_or("");
                if (hasField(wire, 49, sender) && hasField(wire, 56, target) &&
                    (execId.empty() || hasField(wire, 17, execId))) {
                    return true;
                }
            }
        }
    } catch (const tabulo::Error& error) {
        throw std::runtime_error(error.what());
    }
    return false;
}
