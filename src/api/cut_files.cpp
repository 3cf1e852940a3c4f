#include "api/cut_files.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string>
#include <vector>

#include "api/call.h"
#include "storage/file_platform.h"
#include "tabulo/table_info.h"

namespace tabulo {

namespace api {

std::optional<std::pair<std::int64_t, std::int64_t>> cutFile_parseName(std::string_view name,
                                                                       std::optional<std::string_view> table) {
    constexpr std::string_view MARK = ".cut-";
    const std::size_t mark = table.has_value() ? table->size() : name.rfind(MARK);
    if (mark > name.size() || !name.substr(mark).starts_with(MARK) || (table && !name.starts_with(*table))) {
        return std::nullopt;
    }
    name.remove_prefix(mark + MARK.size());
    std::pair<std::int64_t, std::int64_t> numbers{0, 0};
    const char* const end = name.data() + name.size();
    auto parsed = std::from_chars(name.data(), end, numbers.first);
    if (parsed.ec == std::errc() && parsed.ptr != end && *parsed.ptr == '-') {
        parsed = std::from_chars(parsed.ptr + 1, end, numbers.second);
    }
    return parsed.ec == std::errc() && parsed.ptr == end && numbers.first >= 0 && numbers.second >= 0
               ? std::optional(numbers)
               : std::nullopt;
}

}  // namespace api

std::vector<std::filesystem::path> cutFilesOf(const std::filesystem::path& path) {
    api::checkedPath(path);
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    const std::string table = path.filename().string();
    std::vector<std::pair<std::pair<std::int64_t, std::int64_t>, std::filesystem::path>> found;
    std::vector<std::string> names;
    const internal::SystemError error = internal::filePlatform_list(folder.c_str(), &names);
    if (error.failed()) {
        Error::Details details;
        details.code = Code::fileOpen;
        details.path = folder;
        details.systemText = internal::filePlatform_errorText(error);
        throw Error(std::move(details));
    }
    for (const std::string& name : names) {
        if (const auto numbers = api::cutFile_parseName(name, table)) {
            found.emplace_back(*numbers, path.parent_path() / name);
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<std::filesystem::path> files(found.size());
    std::transform(found.begin(), found.end(), files.begin(), [](auto& file) { return std::move(file.second); });
    return files;
}

}  // namespace tabulo
