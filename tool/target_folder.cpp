#include "tool/target_folder.h"

#include <fmt/format.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "tool/listing.h"
#include "tool/status.h"
#include "tool/target.h"

namespace tabulo::tool {

namespace {

// Without the separator at its end, which would hide its name.
std::filesystem::path named(const std::filesystem::path& path) {
    return path.has_filename() ? path : path.parent_path();
}

}  // namespace

TargetFolder::TargetFolder(const std::filesystem::path& path) : path_(named(path)) {
    const std::filesystem::file_status status = std::filesystem::symlink_status(path_);
    const bool isFree =
        !std::filesystem::exists(status) || (std::filesystem::is_directory(status) && std::filesystem::is_empty(path_));
    if (!isFree) {
        throw Failure(fmt::format("{} exists, and is not overwritten", shownText(path_.string())));
    }
    const std::filesystem::path name = fmt::format(".{}.unfinished-{}", path_.filename().string(), ::getpid());
    std::error_code error;
    if (!std::filesystem::create_directory(path_.parent_path() / name, error)) {
        throw Failure(fmt::format("{} cannot be made: {}", shownText(path_.string()), error.message()));
    }
    unfinished_ = path_.parent_path() / name;
}

TargetFolder::~TargetFolder() {
    std::error_code error;
    if (!isFinished_) {
        std::filesystem::remove_all(unfinished_, error);
    }
}

void TargetFolder::finish() {
    commitFile(unfinished_);  // the names in it
    nameFinished(unfinished_, path_);
    isFinished_ = true;
}

}  // namespace tabulo::tool
