// What the tags of FIX messages, their values and the types of messages are called.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

#include "tool/fix_message.h"

namespace tabulo::tool {

class FixDictionary {
  public:
    // The common tags of FIX 4.2 to 5.0.
    static const FixDictionary& builtIn();
    // The names in an XML data dictionary as open-source FIX engines use them; what it does not name has the name of
    // the built-in list. Failure with the place for a file that cannot be read, is no XML, or is no such dictionary.
    static FixDictionary read(const std::filesystem::path& path);

    // "ClOrdID"; empty for an unknown tag.
    std::string_view tagName(std::int32_t tag) const noexcept;
    // "NewOrderSingle"; empty for an unknown type.
    std::string_view messageName(std::string_view type) const noexcept;
    // What a value of a tag is called; of a value of several (ExecInst "1 G") each that has a name, with "; " between
    // them. Empty when it has none.
    std::string valueName(std::int32_t tag, std::string_view value) const;
    // The data fields of the standard and of the dictionary.
    const FixDataFields& dataFields() const noexcept { return dataFields_; }

  private:
    friend class FixDictionaryFile;
    struct Tag {
        std::string name;
        std::map<std::string, std::string, std::less<>> values;
    };

    const Tag* find(std::int32_t tag) const noexcept;
    std::string_view singleValueName(std::int32_t tag, std::string_view value) const noexcept;

    std::unordered_map<std::int32_t, Tag> tags_;
    std::map<std::string, std::string, std::less<>> messages_;
    FixDataFields dataFields_ = FixDataFields::standard();
    const FixDictionary* fallback_ = nullptr;
};

}  // namespace tabulo::tool
