// fix_tag(wire, tag), fix_text(wire), fix_name(tag [, value]): what a message says as it goes over the wire.
#include <algorithm>
#include <string>
#include <string_view>

#include "adapters/sqlite/modules.h"
#include "adapters/sqlite/value_bytes.h"
#include "tabulo/fix.h"

namespace tabulo::sqlite {

namespace {

constexpr int PURE = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;

// The tag that an argument names; none for what is no number of a tag.
std::optional<std::int32_t> tagOf(sqlite3_value* value) {
    const std::int64_t tag = sqlite3_value_int64(value);
    const bool isTag = sqlite3_value_numeric_type(value) == SQLITE_INTEGER && tag > 0 && tag <= INT32_MAX;
    return isTag ? std::optional(static_cast<std::int32_t>(tag)) : std::nullopt;
}

void giveText(sqlite3_context* context, std::string_view text) {
    sqlite3_result_text64(context, text.empty() ? "" : text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void fixTagFunction(sqlite3_context* context, int, sqlite3_value** arguments) {
    const std::optional<std::string_view> wire = bytesOf(arguments[0]);
    const std::optional<std::int32_t> tag = tagOf(arguments[1]);
    if (!wire.has_value() || !tag.has_value()) {
        return;
    }
    if (const auto value = fixValue(*wire, *tag); value.has_value()) {
        giveText(context, *value);
    }
}

void fixTextFunction(sqlite3_context* context, int, sqlite3_value** arguments) {
    const std::optional<std::string_view> wire = bytesOf(arguments[0]);
    if (!wire.has_value()) {
        return;
    }
    try {
        std::string text(*wire);
        std::replace(text.begin(), text.end(), FIX_END_OF_FIELD, '|');
        giveText(context, text);
    } catch (const std::bad_alloc&) {
        sqlite3_result_error_nomem(context);
    }
}

void fixNameFunction(sqlite3_context* context, int count, sqlite3_value** arguments) {
    const std::optional<std::int32_t> tag = tagOf(arguments[0]);
    if (!tag.has_value()) {
        return;
    }
    try {
        const FixDictionary& dictionary = FixDictionary::builtIn();
        std::string name(count == 1 ? dictionary.tagName(*tag) : "");
        if (count > 1) {
            const std::optional<std::string_view> value = bytesOf(arguments[1]);
            constexpr std::int32_t MSG_TYPE = 35;
            name = !value.has_value() ? std::string()
                   : *tag == MSG_TYPE ? std::string(dictionary.messageName(*value))
                                      : dictionary.valueName(*tag, *value);
        }
        if (!name.empty()) {
            giveText(context, name);
        }
    } catch (const std::bad_alloc&) {
        sqlite3_result_error_nomem(context);
    }
}

}  // namespace

int addFixFunctions(sqlite3* database) {
    struct Function {
        const char* name;
        int arguments;
        void (*call)(sqlite3_context*, int, sqlite3_value**);
    };
    for (const Function& function :
         {Function{"fix_tag", 2, fixTagFunction}, Function{"fix_text", 1, fixTextFunction},
          Function{"fix_name", 1, fixNameFunction}, Function{"fix_name", 2, fixNameFunction}}) {
        const int code = sqlite3_create_function_v2(database, function.name, function.arguments, PURE, nullptr,
                                                    function.call, nullptr, nullptr, nullptr);
        if (code != SQLITE_OK) {
            return code;
        }
    }
    return SQLITE_OK;
}

}  // namespace tabulo::sqlite
