// By what messages are grouped, and the keys of the groups: texts that compare as the values in them do.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/message.h"
#include "tool/listing.h"
#include "tool/times.h"

namespace tabulo::tool {

enum class GroupBy { type, messageClass, table, field, minute, hour, day };

struct GroupPart {
    GroupBy by = GroupBy::type;
    std::string name;   // as it was given
    std::string field;  // of "field:NAME"
};

// "type", "class", "table", "field:NAME", "minute", "hour", "day". UsageError for anything else.
GroupPart groupPartNamed(const std::string& name);
bool isTime(GroupBy by) noexcept;

// Appends a value to a key. None and values of other types than texts, integers and doubles are absent ones, which come
// first.
void putKeyValue(std::string* key, const ListValue& value);
// The values of a key.
std::vector<ListValue> keyValues(std::string_view key);

// Makes the keys of a table's messages.
class GroupKeys {
  public:
    // `table` is the name by which the table is told. A field that the layout lacks is absent; UsageError for one that
    // two fields have. The times must outlive it.
    GroupKeys(const std::vector<GroupPart>& parts, const Layout& layout, std::string table, const Times& times);

    // Valid until the next call.
    const std::string& of(const MessageView& message);
    // Whether the layout has every field that is grouped by.
    bool hasFields() const noexcept { return hasFields_; }

  private:
    enum class Source { none, text, number };
    struct Part {
        GroupBy by;
        Source source = Source::none;
        std::size_t index = 0;
    };

    ListValue valueOf(const Part& part, const MessageView& message);
    const std::string& start(GroupBy by, std::int64_t time);

    std::vector<Part> parts_;
    std::string table_;
    const Times& times_;
    bool hasFields_ = true;
    std::string key_;
    // The start of the last message's minute, hour or day: times come in order, mostly.
    std::int64_t second_ = -1;
    GroupBy startBy_ = GroupBy::type;
    std::string start_;
};

}  // namespace tabulo::tool
