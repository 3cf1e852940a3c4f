#include "tool/serve/table_watch.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <utility>

#include "tabulo/error.h"
#include "tool/tables.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::chrono::milliseconds LOOK_TIME(100);
constexpr std::chrono::seconds FOLDER_TIME(1);
// Messages that are looked through at a time, and how long the next ones are waited for.
constexpr std::int64_t PIECE = 100000;
constexpr std::chrono::milliseconds NEW_PIECE_TIME(500);

// Every table that is looked at has up to three files open.
void allowManyFiles() {
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)::setrlimit(RLIMIT_NOFILE, &limit);  // else opening tells
    }
}

bool isInside(const std::filesystem::path& path, const std::filesystem::path& folder) {
    const auto [inFolder, rest] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
    return inFolder == folder.end() && rest != path.end();
}

}  // namespace

TableWatch::TableWatch(const std::vector<std::string>& arguments, TableBoard& board) : board_(board) {
    allowManyFiles();
    for (const std::string& argument : arguments) {
        std::error_code error;
        const std::filesystem::path real = std::filesystem::canonical(argument, error);
        if (error) {
            throw Failure(fmt::format("{} cannot be served: {}", shownPath(argument), error.message()));
        }
        Place place{argument, real, "", !std::filesystem::is_directory(real)};
        if (arguments.size() > 1 && !place.isFile) {
            place.prefix = real.filename().string() + "/";
            int number = 2;
            while (std::any_of(places_.begin(), places_.end(),
                               [&](const Place& other) { return other.prefix == place.prefix; })) {
                place.prefix = fmt::format("{}-{}/", real.filename().string(), number++);
            }
        }
        places_.push_back(std::move(place));
    }
    look();
    board_.tell();  // also that there is nothing: who waits for news begins with something
}

void TableWatch::start() {
    watching_ = std::jthread([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            std::this_thread::sleep_for(LOOK_TIME);
            look();
        }
    });
    lookingThrough_ = std::jthread([this](const std::stop_token& stop) { lookThrough(stop); });
}

void TableWatch::find(const Place& place, const std::filesystem::path& path,
                      std::map<std::string, std::filesystem::path>* found) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    if (error) {
        problems_.push_back(fmt::format("{} is left out: {}", shownPath(path), error.message()));
    } else if (!place.isFile && !isInside(real, place.folder)) {
        problems_.push_back(fmt::format("{} is left out: it leads out of the folder", shownPath(path)));
    } else {
        found->emplace(place.prefix + path.filename().string(), path);
    }
}

// True when there is something to tell.
bool TableWatch::lookAtFolders() {
    const std::vector<std::string> before = std::exchange(problems_, {});
    bool isChanged = false;
    std::map<std::string, std::filesystem::path> found;
    for (const Place& place : places_) {
        if (place.isFile) {
            find(place, place.path, &found);
            continue;
        }
        for (const std::filesystem::path& path : filesThere(place.path)) {
            find(place, path, &found);
        }
    }
    for (auto table = tables_.begin(); table != tables_.end();) {
        if (found.contains(table->first)) {
            ++table;
        } else {
            board_.remove(table->first);
            table = tables_.erase(table);
            isChanged = true;
        }
    }
    for (const auto& [id, path] : found) {
        if (tables_.contains(id)) {
            continue;
        }
        try {
            const auto added = tables_.emplace(id, std::make_unique<WatchedTable>(id, path)).first;
            board_.put(added->second->sight());
            isChanged = true;
        } catch (const Error& error) {
            tables_.erase(id);
            problems_.push_back(fmt::format("{} is left out: {}", shownPath(path), error.what()));
        }
    }
    board_.setProblems(problems_);
    return isChanged || problems_ != before;
}

void TableWatch::look() {
    const auto now = std::chrono::steady_clock::now();
    bool isChanged = false;
    if (now - lookedAtFolders_ >= FOLDER_TIME) {
        isChanged = lookAtFolders();
        lookedAtFolders_ = now;
    }
    std::size_t number = 0;
    for (const auto& [id, table] : tables_) {
        const bool isAsked = number++ == turn_ % std::max<std::size_t>(tables_.size(), 1) && table->askForWriter();
        if (table->look(now) || isAsked) {
            board_.put(table->sight());
            isChanged = true;
        }
    }
    turn_ += 1;
    if (isChanged) {
        board_.tell();
    }
}

void TableWatch::lookThrough(const std::stop_token& stop) {
    Work work;
    work.stop = stop;
    while (!stop.stop_requested()) {
        bool isMore = false;
        for (const Sight& table : board_.all().tables) {
            isMore = (table->marks != nullptr && table->marks->look(PIECE, work)) || isMore;
            if (stop.stop_requested()) {
                return;
            }
        }
        if (!isMore) {
            std::this_thread::sleep_for(NEW_PIECE_TIME);
        }
    }
}

}  // namespace tabulo::tool::serve
