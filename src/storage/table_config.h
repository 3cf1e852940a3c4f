// What describes one table before it is opened: name, file paths, indexed field names, layout, session info tags.
//
// A configuration is filled by one owner and then handed to the table that is created from it; the table's storage owns
// it from there on. Getters answer null or 0 for a null configuration.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/error_codes.h"
#include "core/handle.h"
#include "storage/open_mode.h"

namespace tabulo::internal {

inline constexpr std::int32_t BUILT_IN_STRING_FIELDS = 4;
inline constexpr std::int32_t LEADING_BUILT_IN_STRING_FIELDS = 2;  // stand before the configured fields
inline constexpr std::int32_t MAX_CONFIGURED_STRING_FIELDS = 12;
inline constexpr std::int32_t MAX_STRING_FIELDS = BUILT_IN_STRING_FIELDS + MAX_CONFIGURED_STRING_FIELDS;
inline constexpr std::int32_t MAX_NUMERIC_FIELDS = 16;
inline constexpr std::int32_t MAX_SESSION_INFO_TAGS = 32;

// Layout of a message table, as its header stores it.
struct MessageTableLayout {
    std::int32_t messagesPerBlock = 1000;
    std::int32_t stringFieldCount = BUILT_IN_STRING_FIELDS;  // the built-in ones and the configured ones
    std::int32_t summarisedStringFieldCount = LEADING_BUILT_IN_STRING_FIELDS;  // leading fields that footers summarise
    std::int32_t numericFieldCount = 0;

    bool operator==(const MessageTableLayout&) const = default;
};

// Tags of a session info table; slots from `count` on are 0.
struct SessionInfoTags {
    std::int32_t count = 6;
    std::array<std::int32_t, MAX_SESSION_INFO_TAGS> tags = {2, 1, 3, 4, 5, 6};
};

struct KSVTboTableConfig {
    std::string tableName;  // also the file name under every root
    std::int32_t pathCount = 0;
    std::vector<std::optional<std::string>> paths;  // slot 0 the master's, further slots the replicas'
    FilePresence presence = FilePresence::any;      // what OpenMode::write asks for
    bool namesAreStored = false;  // the field names were read from the file itself, and are not compared with its own
    MessageTableLayout layout;
    SessionInfoTags sessionInfoTags;
    std::array<std::optional<std::string>, MAX_CONFIGURED_STRING_FIELDS> stringFieldNames;
    std::array<std::optional<std::string>, MAX_NUMERIC_FIELDS> numericFieldNames;
};

// A configuration with the default layout and tags and `pathCount` empty paths, owned by the caller. Null when the name
// is null, pathCount is below 1 or memory is short.
KSVTboTableConfig* tableConfig_create(const char* tableName, std::int32_t pathCount) noexcept;
// Frees the configuration; null is accepted.
void tableConfig_destroy(KSVTboTableConfig* config) noexcept;

using TableConfigPtr = Handle<KSVTboTableConfig, tableConfig_destroy>;

// Builds slot `index`'s path from a database root; a null root empties the slot. A root of more than one character that
// ends with "/" or "\" is followed by the table name directly, any other root by a backslash first, on every system:
// end roots with "/". NULL_POINTER_ERROR, INDEX_OUT_OF_BOUNDS_ERROR for an index outside the slots,
// OUT_OF_MEMORY_ERROR.
ErrorCode tableConfig_setPath(KSVTboTableConfig* config, std::int32_t index, const char* dbRoot) noexcept;
// Appends the name of an indexed field; a null name takes up a slot and leaves it empty. NULL_POINTER_ERROR; with a
// WARNING STRING_FIELDS_LIMIT_ERROR at 12 names, NUMERIC_FIELDS_LIMIT_ERROR at 16; INDEX_OUT_OF_BOUNDS_ERROR when the
// layout's count points outside the slots; OUT_OF_MEMORY_ERROR, nothing counted.
ErrorCode tableConfig_addStringFieldName(KSVTboTableConfig* config, const char* name) noexcept;
ErrorCode tableConfig_addNumericFieldName(KSVTboTableConfig* config, const char* name) noexcept;
// Copies whichever block is given (each may be null). NULL_POINTER_ERROR; INDEX_OUT_OF_BOUNDS_ERROR for a tag count
// outside 0..32, nothing copied.
ErrorCode tableConfig_setParams(KSVTboTableConfig* config, const MessageTableLayout* layout,
                                const SessionInfoTags* sessionInfoTags) noexcept;

// No caller of ours: paths have the name in them.
const char* tableConfig_getTableName(const KSVTboTableConfig* config) noexcept;
// Null also for an empty slot and an index outside the slots; so with the field names.
const char* tableConfig_getPath(const KSVTboTableConfig* config, std::int32_t index) noexcept;
const char* tableConfig_getMasterPath(const KSVTboTableConfig* config) noexcept;
const char* tableConfig_getStringFieldName(const KSVTboTableConfig* config, std::int32_t index) noexcept;
const char* tableConfig_getNumericFieldName(const KSVTboTableConfig* config, std::int32_t index) noexcept;
const MessageTableLayout* tableConfig_getLayout(const KSVTboTableConfig* config) noexcept;
const SessionInfoTags* tableConfig_getSessionInfoTags(const KSVTboTableConfig* config) noexcept;
// The number of files that a storage opens: 1 for every configuration. Replicas stay closed on purpose.
std::int32_t tableConfig_getFileCount(const KSVTboTableConfig* config) noexcept;

// Writes the configuration to the log file, without a line end. No caller of ours: it is there for whoever looks for a
// fault.
void tableConfig_print(const KSVTboTableConfig* config) noexcept;

}  // namespace tabulo::internal
