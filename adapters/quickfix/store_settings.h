// What a session's settings ask of its tables. C++14, as the engine's side of this adapter.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tabulo {
namespace quickfix {

struct IndexedField {
    std::int32_t tag;
    std::string name;  // of the column: the tag's name, or its number when nobody has named it
};

// When writes are committed to the disk; of the process.
struct SyncSetting {
    bool isAlways = false;
    std::int32_t messages = 0;  // after so many, when it is not 0
    std::int32_t seconds = 0;   // after such a time, when it is not 0
};

struct StoreSettings {
    std::string folder;
    std::vector<IndexedField> texts;
    std::vector<IndexedField> numbers;
    bool logsHeartbeats = false;
    SyncSetting sync;
    bool rolls = false;  // a table is put aside at a reset
    int kept = 0;        // of those, the newest so many stay
};

// The settings as they stand in a file. An empty text is one that was left out.
struct SettingTexts {
    std::string storePath;
    std::string stringFields;
    std::string numericFields;
    std::string logHeartbeats;
    std::string sync;
    std::string roll;
};

// std::invalid_argument for a text that means nothing, with the setting, the text and what is allowed.
StoreSettings storeSettingsOf(const SettingTexts& texts);

}  // namespace quickfix
}  // namespace tabulo
