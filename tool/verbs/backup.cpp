// backup: a consistent copy of tables, also beside their writers.
#include <fmt/format.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/session_info.h"
#include "tool/listing.h"
#include "tool/status.h"
#include "tool/table_cells.h"
#include "tool/table_copy.h"
#include "tool/tables.h"
#include "tool/target.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct BackupOptions {
    std::vector<std::string> files;
    std::string to;
    ListFormat format = ListFormat::text;
};

// A session info table as it was at the beginning.
struct SessionCopy {
    std::filesystem::path source;
    std::filesystem::path target;
    std::vector<std::int32_t> tags;
    std::vector<SessionValue> values;
};

struct Plan {
    std::vector<SessionCopy> sessions;
    std::vector<TableCopy> tables;
};

// The files to copy, by the kind of table that they hold.
struct Sources {
    std::vector<NamedFile> sessions;
    std::vector<NamedFile> tables;
};

Sources sourcesOf(Console& console, const std::vector<std::string>& arguments) {
    Sources sources;
    std::map<std::string, std::filesystem::path> names;
    for (const NamedFile& file : expandPaths(console, arguments)) {
        try {
            const TableKind kind = inspect(file.path).kind;
            (kind == TableKind::sessionInfo ? sources.sessions : sources.tables).push_back(file);
        } catch (const Error&) {
            skipOrThrow(console, file);
            continue;
        }
        const auto [other, isNew] = names.emplace(file.path.filename().string(), file.path);
        if (!isNew) {
            throw UsageError(fmt::format("{} and {} would have one copy; back them up into two folders",
                                         shownPath(other->second), shownPath(file.path)));
        }
    }
    if (names.empty()) {
        throw Failure("there is no table to copy");
    }
    return sources;
}

// Session values are read before the ends of the tables are fixed: a value that was written behind a message is never
// newer than that message's copy.
Plan planOf(const Sources& sources, const std::filesystem::path& to) {
    Plan plan;
    for (const NamedFile& file : sources.sessions) {
        const SessionInfo session = SessionInfo::open(file.path);
        plan.sessions.push_back({file.path, to / file.path.filename(), session.tags(), session.values()});
    }
    for (const NamedFile& file : sources.tables) {
        Console::checkInterrupt();
        plan.tables.emplace_back(file.path, to / file.path.filename());
        plan.tables.back().fixEnd();
    }
    return plan;
}

// What stands in the place of a session's copy must be one.
void checkTarget(const SessionCopy& copy) {
    if (!std::filesystem::exists(std::filesystem::symlink_status(copy.target))) {
        return;
    }
    if (std::filesystem::equivalent(copy.source, copy.target)) {
        throw UsageError(fmt::format("{} would be its own copy", shownPath(copy.source)));
    }
    if (SessionInfo::open(copy.target).tags() != copy.tags) {
        throw Failure(fmt::format("{} has other tags than {} and is no copy of it; name another folder",
                                  shownPath(copy.target), shownPath(copy.source)));
    }
}

// Values are replaced as a whole: the copy is made beside the one that is there.
void copySession(const SessionCopy& copy) {
    const std::filesystem::path beside =
        copy.target.parent_path() / ('.' + copy.target.filename().string() + ".unfinished");
    std::error_code error;
    std::filesystem::remove(beside, error);  // left by a killed run
    try {
        SessionInfo session = SessionInfo::create(beside, copy.tags);
        session.write(copy.values);
        session.close();
        commitFile(beside);
        replaceByFile(beside, copy.target);
    } catch (...) {
        std::filesystem::remove(beside, error);
        throw;
    }
}

// The folder to copy to; one that was made for nothing goes.
class Folder {
  public:
    explicit Folder(const std::filesystem::path& path) : path_(path) {
        std::error_code error;
        isNew_ = std::filesystem::create_directory(path, error);
        if (error || !std::filesystem::is_directory(path)) {
            throw Failure(fmt::format("{} cannot be made: {}", shownPath(path),
                                      error ? error.message() : "something else has the name"));
        }
    }
    ~Folder() {
        std::error_code error;
        if (isNew_ && std::filesystem::is_empty(path_, error)) {
            std::filesystem::remove(path_, error);
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

  private:
    std::filesystem::path path_;
    bool isNew_ = false;
};

ListRecord rowOf(const std::filesystem::path& source, const std::filesystem::path& target, TableKind kind) {
    ListRecord record;
    record.add("table", "TABLE", {source.filename().string()});
    record.add("path", "", {source.lexically_normal().string()});
    record.add("kind", "KIND", {std::string(kind == TableKind::sessionInfo ? "session" : "messages")});
    record.add("to", "", {target.lexically_normal().string()});
    return record;
}

ListRecord rowOf(const TableCopy& copy) {
    ListRecord record = rowOf(copy.source(), copy.target(), TableKind::messages);
    record.add("messages", "MESSAGES", {copy.messages()});
    record.add("added", "ADDED", {copy.added()});
    record.add("lastUid", "LAST UID", {optionalValue(copy.lastUniformId())});
    record.add("bytes", "SIZE", bytesCell(copy.size()));
    return record;
}

ListRecord rowOf(const SessionCopy& copy) {
    ListRecord record = rowOf(copy.source, copy.target, TableKind::sessionInfo);
    record.add("messages", "MESSAGES", {});
    record.add("added", "ADDED", {});
    record.add("lastUid", "LAST UID", {});
    record.add("bytes", "SIZE", bytesCell(static_cast<std::int64_t>(std::filesystem::file_size(copy.target))));
    return record;
}

void run(Console& console, const BackupOptions& options) {
    const Folder folder(options.to);
    Plan plan = planOf(sourcesOf(console, options.files), options.to);
    for (const SessionCopy& copy : plan.sessions) {
        checkTarget(copy);
    }
    for (TableCopy& copy : plan.tables) {
        copy.compare(console);
    }
    std::unique_ptr<Listing> listing;
    const auto tell = [&](const ListRecord& record) {
        if (listing == nullptr) {
            listing = std::make_unique<Listing>(console, options.format, record.columns);
        }
        listing->add(record.row);
    };
    for (TableCopy& copy : plan.tables) {
        copy.run(console);
        tell(rowOf(copy));
    }
    for (const SessionCopy& copy : plan.sessions) {
        Console::checkInterrupt();
        copySession(copy);
        tell(rowOf(copy));
    }
    listing->end();
    console.flush();
    for (const TableCopy& copy : plan.tables) {
        if (copy.damage().has_value()) {
            console.warn(fmt::format("only what stands in front of the damage was copied: {}", *copy.damage()));
        }
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<BackupOptions>();
    app.add_option("files", options->files, "Tables of both kinds, or folders of them")->type_name("FILE")->required();
    app.add_option("--to", options->to, "The folder of the copies; a repeat adds what is new")
        ->type_name("DIR")
        ->required();
    declareListFormat(app, &options->format);
    return [options](Console& console) { run(console, *options); };
}

}  // namespace

const Verb backupVerb{"backup", "Copies tables, also beside their writers, and keeps the copies up with them",
                      "  # a folder of tables: no copied session value is ahead of the copied messages\n"
                      "  tabulo backup data --to /backup/data\n"
                      "  # again: adds what is new\n"
                      "  tabulo backup data --to /backup/data\n",
                      declare};

}  // namespace tabulo::tool
