// Reads an XML data dictionary:
//
//   <fix ...>
//     <messages> <message name="Logon" msgtype="A" ...> ... </message> ... </messages>
//     <fields>   <field number="54" name="Side" type="CHAR"> <value enum="1" description="BUY"/> ... </field> ...
//
// The values of a field may also stand in a <values> inside it. Whatever else there is is not looked at.
#include "tool/fix_dictionary_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <pugixml.hpp>
#include <unordered_map>

#include "tool/status.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t LARGEST_FILE = std::size_t{64} * 1024 * 1024;
constexpr std::size_t PIECE = std::size_t{64} * 1024;

std::string contentsOf(const std::filesystem::path& path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        throw Failure(fmt::format("{}: is a folder, not a FIX data dictionary", path.string()));
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string text;
    while (file) {
        const std::size_t size = text.size();
        text.resize(size + PIECE);
        file.read(text.data() + size, static_cast<std::streamsize>(PIECE));
        text.resize(size + static_cast<std::size_t>(file.gcount()));
        if (text.size() > LARGEST_FILE) {
            throw Failure(fmt::format("{}: is larger than {} MiB, and so no FIX data dictionary", path.string(),
                                      LARGEST_FILE / 1024 / 1024));
        }
    }
    if (!file.eof()) {
        throw Failure(fmt::format("{}: cannot be read: {}", path.string(), std::strerror(errno)));
    }
    return text;
}

// Holds the file while it is read, so that every error can name its place.
class FixDictionaryFile {
  public:
    explicit FixDictionaryFile(const std::filesystem::path& path) : path_(path), text_(contentsOf(path)) {}

    FixDictionary read() {
        const pugi::xml_parse_result result = document_.load_buffer(text_.data(), text_.size());
        if (!result) {
            refuse(result.offset, result.description());
        }
        const pugi::xml_node root = document_.document_element();
        if (std::string_view(root.name()) != "fix") {
            refuse(root.offset_debug(), fmt::format("no FIX data dictionary: it begins with <{}>, not with <fix>",
                                                    std::string_view(root.name()).substr(0, 100)));
        }
        for (const pugi::xml_node field : root.child("fields").children("field")) {
            readField(field);
        }
        if (names_.empty()) {
            refuse(root.offset_debug(), "no FIX data dictionary: there is no <field> in <fields>");
        }
        for (const pugi::xml_node message : root.child("messages").children("message")) {
            const std::string type = required(message, "msgtype");
            dictionary_.nameMessage(type, required(message, "name"));
        }
        readDataFields(root.child("fields"));
        return std::move(dictionary_);
    }

  private:
    [[noreturn]] void refuse(std::ptrdiff_t offset, std::string_view why) const {
        const std::string_view text(text_);
        const std::string_view before = text.substr(0, offset < 0 ? 0 : static_cast<std::size_t>(offset));
        const auto line = std::ranges::count(before, '\n') + 1;
        const std::size_t column = before.size() - (before.rfind('\n') + 1) + 1;  // npos + 1 is 0
        throw Failure(fmt::format("{}:{}:{}: {}", path_.string(), line, column, why));
    }

    std::string required(const pugi::xml_node& node, const char* attribute) const {
        const std::string_view value = node.attribute(attribute).value();
        if (value.empty()) {
            refuse(node.offset_debug(), fmt::format("a <{}> without {}", node.name(), attribute));
        }
        return std::string(value);
    }

    std::int32_t tagOf(const pugi::xml_node& field) const {
        const std::string number = required(field, "number");
        const std::optional<std::int32_t> tag = fixTag(number);
        if (!tag) {
            refuse(field.offset_debug(), fmt::format("\"{}\" is no tag", number.substr(0, 100)));
        }
        return *tag;
    }

    void readField(const pugi::xml_node& field) {
        const std::int32_t tag = tagOf(field);
        const std::string name = required(field, "name");
        if (names_.try_emplace(tag, name).first->second != name) {
            refuse(field.offset_debug(), fmt::format("the second name of tag {}", tag));
        }
        dictionary_.nameTag(tag, name);
        readValues(field, tag);
        readValues(field.child("values"), tag);
    }

    void readValues(const pugi::xml_node& parent, std::int32_t tag) {
        for (const pugi::xml_node value : parent.children("value")) {
            const std::string name = value.attribute("description").value();
            dictionary_.nameValue(tag, required(value, "enum"), name);
        }
    }

    // A field of type DATA has its length in the field of the same name with Len or Length behind it.
    void readDataFields(const pugi::xml_node& fields) {
        std::unordered_map<std::string, std::int32_t> tags;
        for (const auto& [tag, name] : names_) {
            tags.emplace(name, tag);
        }
        for (const pugi::xml_node field : fields.children("field")) {
            const std::string_view type = field.attribute("type").value();
            if (type != "DATA" && type != "XMLDATA") {
                continue;
            }
            for (const char* ending : {"Len", "Length"}) {
                const auto length = tags.find(required(field, "name") + ending);
                if (length != tags.end()) {
                    dictionary_.addDataField(length->second, tagOf(field));
                }
            }
        }
    }

    std::filesystem::path path_;
    std::string text_;
    pugi::xml_document document_;
    FixDictionary dictionary_{&FixDictionary::builtIn()};
    std::unordered_map<std::int32_t, std::string> names_;  // of the tags in the file
};

}  // namespace

FixDictionary readFixDictionary(const std::filesystem::path& path) {
    return FixDictionaryFile(path).read();
}

}  // namespace tabulo::tool
