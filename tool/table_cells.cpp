#include "tool/table_cells.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "tool/status.h"
#include "tool/tables.h"

namespace tabulo::tool {

void ListRecord::add(std::string key, std::string title, ListCell cell) {
    columns.push_back({std::move(key), std::move(title)});
    row.push_back(std::move(cell));
}

void ListRecord::addTime(const std::string& key, std::string title, std::optional<std::int64_t> time,
                         const Times& times) {
    if (!time.has_value()) {
        add(key, std::move(title), {});
        add(key + "Raw", "", {});
        return;
    }
    const ListValue iso = times.unit().has_value() ? ListValue(times.iso(*time)) : ListValue();
    add(key, std::move(title), {iso, times.text(*time)});
    add(key + "Raw", "", {std::to_string(*time)});
}

std::vector<std::string> filteredTexts(const Layout& layout) {
    std::vector<std::string> names;
    if (layout.builtInTexts >= 3) {
        names.emplace_back("text0");
    }
    if (layout.builtInTexts >= 4) {
        names.emplace_back("text1");
    }
    names.insert(names.end(), layout.texts.begin(), layout.texts.end());
    if (layout.summarisedTexts.has_value()) {
        names.resize(std::min(names.size(), static_cast<std::size_t>(*layout.summarisedTexts)));
    }
    return names;
}

std::optional<std::int64_t> sampleTime(const TableInfo& info) {
    return info.lastTime.has_value() ? info.lastTime : info.firstTime;
}

bool isSameDamage(const Error& a, const Error& b) {
    constexpr std::int64_t LENGTH_WORD = 8;
    return a.code() == b.code() && a.offset().has_value() && b.offset().has_value() &&
           std::abs(*a.offset() - *b.offset()) <= LENGTH_WORD;
}

std::optional<IndexInfo> indexOf(const TableInfo& info) {
    try {
        return info.kind == TableKind::messages ? inspectIndex(info.path) : std::nullopt;
    } catch (const Error&) {
        return std::nullopt;  // what is wrong with the table is told as its problem
    }
}

ListCell openCell(OpenForWriting open) {
    return open == OpenForWriting::unknown ? ListCell{{}, "unknown"} : ListCell{open == OpenForWriting::yes};
}

ListCell bytesCell(std::int64_t bytes) {
    return {bytes, shownBytes(bytes)};
}

ListCell namesCell(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + (name.empty() ? "(no name)" : shownText(name));
    }
    return {names, text};
}

ListCell pathsCell(const std::vector<std::filesystem::path>& paths) {
    std::vector<std::string> names;
    names.reserve(paths.size());
    for (const std::filesystem::path& path : paths) {
        names.push_back(path.string());
    }
    return {names};
}

bool isOfKind(const std::filesystem::path& path, TableKind kind) {
    try {
        return inspect(path).kind == kind;
    } catch (const Error&) {
        return false;
    }
}

void refuseKind(const std::filesystem::path& path, TableKind kind) {
    if (kind == TableKind::sessionInfo) {
        throw Failure(fmt::format("{0} is a session info table and holds no messages; 'tabulo session {0}' shows it",
                                  shownPath(path)));
    }
    throw Failure(fmt::format("{0} is a message table and holds no session values; 'tabulo info {0}' tells about it",
                              shownPath(path)));
}

}  // namespace tabulo::tool
