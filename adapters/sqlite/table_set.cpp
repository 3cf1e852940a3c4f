#include "adapters/sqlite/table_set.h"

#include <glob.h>

#include <filesystem>
#include <set>
#include <utility>

namespace tabulo::sqlite {

namespace {

bool isGlob(const std::string& pattern) {
    return pattern.find_first_of("*?[") != std::string::npos && !std::filesystem::exists(pattern);
}

// What stands beside tables and is none.
bool isLeftOut(const std::string& path) {
    const std::filesystem::path name = std::filesystem::path(path).filename();
    return name.string().starts_with('.') || name.extension() == ".idx" ||
           name.string().find(".cut-") != std::string::npos || name.string().ends_with(".idx.new") ||
           std::filesystem::is_directory(path);
}

}  // namespace

TableSet::TableSet(Connection& connection, std::vector<std::string> patterns, Layouts layouts,
                   std::optional<TimeUnit> unit)
    : connection_(connection), patterns_(std::move(patterns)), layouts_(layouts), unit_(unit) {
    files();
    connection_.add(this);
}

TableSet::~TableSet() {
    connection_.remove(this);
}

std::vector<std::string> TableSet::expand(const std::string& pattern) const {
    ::glob_t found{};
    const int code = ::glob(pattern.c_str(), 0, nullptr, &found);
    std::vector<std::string> paths(found.gl_pathv, found.gl_pathv + (code == 0 ? found.gl_pathc : 0));
    ::globfree(&found);
    if (code != 0 && code != GLOB_NOMATCH) {
        throw Error({.code = Code::fileOpen, .path = pattern, .detail = "the folder cannot be searched"});
    }
    std::erase_if(paths, isLeftOut);
    return paths;
}

// `isFound`: by a glob, which passes over session info tables. A file that comes back has the number that it had.
void TableSet::addFile(const std::string& path, bool isFound) {
    if (isFound && inspect(path).kind == TableKind::sessionInfo) {
        return;
    }
    auto file = std::make_unique<TableFile>(path);
    const Layout& layout = file->reader().layout();
    if (numbers_.empty()) {
        layout_ = layout;
        first_ = path;
    } else if (layouts_ == Layouts::one && (layout.texts != layout_.texts || layout.numbers != layout_.numbers)) {
        throw Error({.code = Code::configMismatch,
                     .path = path,
                     .detail = "its fields are not those of " + first_ +
                               "; tabulo_messages('...') shows what tables with any fields have in common"});
    }
    const auto [number, isNew] = numbers_.emplace(path, files_.size());
    if (isNew) {
        files_.emplace_back();
    }
    files_[number->second] = std::move(file);
}

void TableSet::find(std::int64_t moment) {
    std::set<std::string> there;
    for (const std::string& pattern : patterns_) {
        const bool isFound = isGlob(pattern);
        const std::vector<std::string> paths = isFound ? expand(pattern) : std::vector{pattern};
        for (const std::string& path : paths) {
            there.insert(path);
            const auto number = numbers_.find(path);
            if (number == numbers_.end() || files_[number->second] == nullptr) {
                addFile(path, isFound);
            } else if (moment != moment_) {
                files_[number->second]->look(layouts_ == Layouts::any);
            }
        }
    }
    for (const auto& [path, number] : numbers_) {
        if (!there.contains(path)) {
            files_[number].reset();
        }
    }
    if (numbers_.empty()) {
        throw Error({.code = Code::fileOpen,
                     .path = patterns_.empty() ? "" : patterns_.front(),
                     .detail = "no message table has such a name"});
    }
}

void TableSet::look(std::int64_t moment) noexcept {
    failure_ = nullptr;
    try {
        find(moment);
    } catch (...) {
        failure_ = std::current_exception();
    }
    moment_ = moment;
}

const std::vector<std::unique_ptr<TableFile>>& TableSet::files() {
    const std::int64_t moment = connection_.moment();
    if (moment != moment_) {
        look(moment);
    }
    if (failure_ != nullptr) {
        std::rethrow_exception(failure_);
    }
    return files_;
}

std::optional<TimeUnit> TableSet::unitOf(const TableFile& file) const noexcept {
    if (unit_.has_value() || layouts_ == Layouts::any) {
        return unit_.has_value() ? unit_ : file.unit();
    }
    for (const auto& other : files_) {
        if (other != nullptr && other->unit().has_value()) {
            return other->unit();
        }
    }
    return std::nullopt;
}

}  // namespace tabulo::sqlite
