#include "tests/support/debug_log.h"

#include <unistd.h>

#include <filesystem>

#include "tests/support/bytes.h"
#include "tests/support/text_lines.h"

namespace tabulo::internal::test {

std::string debugLine(const std::string& function, const std::string& message) {
    return "Tabulo/C DEBUG: " + function + "(): " + message;
}

std::string noteLine(const std::string& function, const std::string& message) {
    return "Tabulo/C NOTE: " + function + "(): " + message;
}

std::string warningLine(const std::string& function, const std::string& message) {
    return "Tabulo/C WARNING: " + function + "(): " + message;
}

DebugLog::DebugLog()
    : path_((std::filesystem::current_path() / ("tabulo-" + std::to_string(::getpid()) + ".log")).string()) {
    clear();
}

std::string DebugLog::text() const {
    const std::string whole = readText(path_);
    return whole.size() < mark_ ? whole : whole.substr(mark_);
}

std::vector<std::string> DebugLog::lines() const {
    return textLines(text());
}

void DebugLog::clear() {
    mark_ = readText(path_).size();
}

}  // namespace tabulo::internal::test
