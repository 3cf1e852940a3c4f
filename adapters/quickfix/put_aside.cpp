#include "adapters/quickfix/put_aside.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace tabulo::quickfix {

namespace {

constexpr std::int64_t MILLISECOND = 1'000'000;
constexpr std::int64_t SECOND = 1000 * MILLISECOND;
constexpr std::string_view PATTERN = "00000000-000000.000";  // of digits, and what stands between them
constexpr const char* INDEX = ".idx";

std::string nameOf(std::int64_t time) {
    const std::time_t second = time / SECOND;
    std::tm parts{};
    (void)::gmtime_r(&second, &parts);  // of every time that the system's clock has
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
    char fraction[8];
    (void)std::snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(time % SECOND / MILLISECOND));
    return std::string(text, length) + fraction;
}

// Whether a name ends as those of tables that were put aside do, and is no side index.
bool isAside(std::string_view ending) {
    if (ending.size() < PATTERN.size()) {
        return false;
    }
    const auto isDigit = [](char letter) { return letter >= '0' && letter <= '9'; };
    for (std::size_t i = 0; i < PATTERN.size(); ++i) {
        if (PATTERN[i] == '0' ? !isDigit(ending[i]) : ending[i] != PATTERN[i]) {
            return false;
        }
    }
    const std::string_view number = ending.substr(PATTERN.size());
    return number.empty() ||
           (number.size() > 1 && number[0] == '-' && std::all_of(number.begin() + 1, number.end(), isDigit));
}

std::filesystem::path indexOf(std::filesystem::path table) {
    table += INDEX;
    return table;
}

}  // namespace

void putTableAside(const std::filesystem::path& table, std::int64_t begun) {
    const std::string base = table.string() + "." + nameOf(begun);
    std::filesystem::path name = base;
    for (int number = 1; std::filesystem::exists(name); ++number) {
        name = base + "-" + std::to_string(number);
    }
    if (std::filesystem::exists(indexOf(table))) {  // first, so that no index stands beside the table that is made next
        std::filesystem::rename(indexOf(table), indexOf(name));
    }
    std::filesystem::rename(table, name);
}

void removeOldest(const std::filesystem::path& table, int kept) {
    std::vector<std::filesystem::path> found;
    const std::string start = table.filename().string() + ".";
    for (const auto& entry : std::filesystem::directory_iterator(table.parent_path())) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(start) && isAside(std::string_view(name).substr(start.size()))) {
            found.push_back(entry.path());
        }
    }
    std::sort(found.begin(), found.end());
    for (std::size_t oldest = 0; oldest + static_cast<std::size_t>(kept) < found.size(); ++oldest) {
        std::filesystem::remove(found[oldest]);
        std::filesystem::remove(indexOf(found[oldest]));
    }
}

}  // namespace tabulo::quickfix
