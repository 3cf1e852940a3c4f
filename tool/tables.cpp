#include "tool/tables.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

#include "tool/listing.h"
#include "tool/status.h"
#include "tool/table_cells.h"

namespace tabulo::tool {

namespace {

bool isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A folder stands for its files without those of recoveries and those that are hidden.
bool isOfFolder(const std::string& name) {
    return !name.starts_with('.') && !tableOfCutFile(name).has_value();
}

// The name of a side index, or of one that is being made anew.
bool isIndexName(std::string_view name) {
    return name.ends_with(".idx") || name.ends_with(".idx.new");
}

// A table may have any name: what is called like an index is one unless it is a table.
bool isIndex(const std::filesystem::path& path) {
    if (!isIndexName(path.filename().string())) {
        return false;
    }
    try {
        static_cast<void>(inspect(path));
    } catch (const Error&) {
        return true;
    }
    return false;
}

std::vector<NamedFile> filesOf(Console& console, const std::filesystem::path& folder) {
    std::vector<NamedFile> files;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        const std::string name = entry->path().filename().string();
        std::error_code unknown;  // of a link that leads nowhere
        const std::filesystem::file_status status = entry->status(unknown);
        const bool wanted = isOfFolder(name) && !std::filesystem::is_directory(status);
        if (wanted && !std::filesystem::is_regular_file(status)) {
            console.warn(fmt::format("{} is no file and was left out", shownPath(entry->path())));
        } else if (wanted && !isIndex(entry->path())) {
            files.push_back({entry->path(), true});
        }
        entry.increment(error);
    }
    if (error) {
        throw Failure(fmt::format("{} cannot be read: {}", shownPath(folder), error.message()));
    }
    std::sort(files.begin(), files.end(), [](const NamedFile& a, const NamedFile& b) { return a.path < b.path; });
    return files;
}

// Lets this process have as many files open as it may, when so many tables need it.
void allowOpenFiles(std::size_t tables) {
    constexpr rlim_t OTHERS = 64;
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < tables + OTHERS) {
        limit.rlim_cur = limit.rlim_max;
        (void)::setrlimit(RLIMIT_NOFILE, &limit);  // else opening tells
    }
}

}  // namespace

std::string shownPath(const std::filesystem::path& path) {
    return shownText(path.string());
}

std::optional<std::string> tableOfCutFile(std::string_view name) {
    constexpr std::string_view MARK = ".cut-";
    const std::size_t mark = name.rfind(MARK);
    if (mark == std::string_view::npos || mark == 0) {
        return std::nullopt;
    }
    const std::string_view numbers = name.substr(mark + MARK.size());
    const std::size_t dash = numbers.find('-');
    const bool isCut =
        isNumber(numbers.substr(0, dash)) && (dash == std::string_view::npos || isNumber(numbers.substr(dash + 1)));
    return isCut ? std::optional(std::string(name.substr(0, mark))) : std::nullopt;
}

std::vector<NamedFile> expandPaths(Console& console, const std::vector<std::string>& arguments) {
    std::vector<NamedFile> files;
    for (const std::string& argument : arguments) {
        const std::filesystem::path path(argument);
        std::error_code error;
        const std::filesystem::file_status status = std::filesystem::status(path, error);
        if (!std::filesystem::exists(status)) {
            const std::string why = error ? error.message() : "No such file or directory";
            throw Failure(fmt::format("{} cannot be read: {}", shownPath(path), why));
        }
        if (std::filesystem::is_directory(status)) {
            std::vector<NamedFile> found = filesOf(console, path);
            std::move(found.begin(), found.end(), std::back_inserter(files));
        } else if (std::filesystem::is_regular_file(status)) {
            files.push_back({path, false});
        } else {
            throw Failure(fmt::format("{} is neither a file nor a folder", shownPath(path)));
        }
    }
    return files;
}

NewTables::NewTables(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        std::error_code error;
        if (std::filesystem::is_directory(argument, error)) {
            folders_.emplace_back(argument);
        }
    }
    for (const std::filesystem::path& path : look()) {
        know(path);
    }
}

std::vector<std::filesystem::path> filesThere(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> found;
    std::error_code error;  // a folder that is gone may come again
    std::filesystem::directory_iterator entry(folder, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        std::error_code unknown;
        const std::string name = entry->path().filename().string();
        if (entry->is_regular_file(unknown) && isOfFolder(name) && !isIndexName(name)) {
            found.push_back(entry->path());
        }
        entry.increment(error);
    }
    return found;
}

std::vector<std::filesystem::path> NewTables::look() const {
    std::vector<std::filesystem::path> found;
    for (const std::filesystem::path& folder : folders_) {
        std::vector<std::filesystem::path> files = filesThere(folder);
        std::erase_if(files, [this](const std::filesystem::path& file) { return known_.contains(file); });
        found.insert(found.end(), files.begin(), files.end());
    }
    std::sort(found.begin(), found.end());
    return found;
}

void skipOrThrow(Console& console, const NamedFile& file) {
    try {
        throw;
    } catch (const Error& error) {
        if (!file.fromFolder) {
            throw;
        }
        console.warn(fmt::format("left out: {}", error.what()));
    }
}

std::vector<Reader> openTablesThere(Console& console, const std::vector<NamedFile>& files) {
    allowOpenFiles(files.size());
    std::vector<Reader> readers;
    for (const NamedFile& file : files) {
        try {
            readers.emplace_back(file.path);
        } catch (const Error& error) {
            if (error.code() != Code::tableType || !isOfKind(file.path, TableKind::sessionInfo)) {
                skipOrThrow(console, file);
            } else if (!file.fromFolder) {
                refuseKind(file.path, TableKind::sessionInfo);
            }
        }
    }
    return readers;
}

std::vector<Reader> openTables(Console& console, const std::vector<NamedFile>& files) {
    std::vector<Reader> readers = openTablesThere(console, files);
    if (readers.empty()) {
        throw Failure("there is no message table to read");
    }
    return readers;
}

std::optional<Position> endNow(Reader& reader) {
    try {
        return reader.end();
    } catch (const Error&) {  // it is told where the messages end
        return std::nullopt;
    }
}

Messages messagesUntilNow(Reader& reader, const Work& work) {
    const std::optional<Position> end = endNow(reader);
    return reader.messages(end.has_value() ? Query().before(*end) : Query(), work);
}

MergedMessages::MergedMessages(Console& console, std::vector<std::string> names, std::vector<Messages> messages,
                               MergeBy merge, bool backward)
    : console_(console), names_(std::move(names)), messages_(std::move(messages)), merge_(merge), backward_(backward) {
}

bool MergedMessages::isBehind(const Head& a, const Head& b) const noexcept {
    if (a.key != b.key) {
        return backward_ ? a.key < b.key : a.key > b.key;
    }
    return a.table > b.table;
}

// The next message of a table, or null when it has nothing more to give.
const MessageView* MergedMessages::advance(std::size_t table) {
    Messages& messages = messages_[table];
    try {
        const MessageView* message = messages.next();
        if (message == nullptr && messages.ending() == Ending::dropped) {
            console_.flush();
            console_.warn(
                fmt::format("{} was emptied while it was read; what it had still to give is gone", names_[table]));
        }
        return message;
    } catch (const Error& error) {
        console_.flush();  // what stands in front of the damage
        console_.warn(error.what());
        return nullptr;
    }
}

const MessageView* MergedMessages::nextInTurn() {
    while (turn_ < messages_.size()) {
        given_ = backward_ ? messages_.size() - 1 - turn_ : turn_;
        if (const MessageView* message = advance(given_)) {
            return message;
        }
        ++turn_;
    }
    return nullptr;
}

// Puts the next message of a table among the heads.
void MergedMessages::push(std::size_t table) {
    if (const MessageView* message = advance(table)) {
        heads_.push_back({merge_ == MergeBy::time ? message->time() : message->uniformId(), table});
        std::push_heap(heads_.begin(), heads_.end(), [this](const Head& a, const Head& b) { return isBehind(a, b); });
    }
}

// Ids of one engine are given once, so that two tables with the same one come from two engines.
void MergedMessages::tellRepeat(std::size_t table, std::int32_t uniformId) {
    if (uniformId != 0 && uniformId == givenId_ && table != given_ && !repeatTold_) {
        repeatTold_ = true;
        console_.say(
            fmt::format("{} and {} both have uniform id {}: their ids are not of one sequence; "
                        "--merge time orders them by time",
                        names_[given_], names_[table], uniformId));
    }
    givenId_ = uniformId;
}

const MessageView* MergedMessages::next() {
    if (merge_ == MergeBy::nothing) {
        return nextInTurn();
    }
    if (!begun_) {
        begun_ = true;
        for (std::size_t table = 0; table < messages_.size(); ++table) {
            push(table);
        }
    } else if (hasGiven_) {
        push(given_);
    }
    hasGiven_ = !heads_.empty();
    if (!hasGiven_) {
        return nullptr;
    }
    std::pop_heap(heads_.begin(), heads_.end(), [this](const Head& a, const Head& b) { return isBehind(a, b); });
    const std::size_t table = heads_.back().table;
    heads_.pop_back();
    const MessageView* message = messages_[table].current();
    if (merge_ == MergeBy::uniformId) {
        tellRepeat(table, message->uniformId());
    }
    given_ = table;
    return message;
}

}  // namespace tabulo::tool
