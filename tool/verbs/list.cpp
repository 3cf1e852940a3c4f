// ls: what tables there are.
#include <fmt/format.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/table_info.h"
#include "tool/listing.h"
#include "tool/table_cells.h"
#include "tool/tables.h"
#include "tool/times.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct ListOptions {
    std::vector<std::string> paths;
    ListFormat format = ListFormat::text;
    TimeOptions times;
};

// What recoveries have cut out, by the path of the table. Each folder is read once, however many tables it holds.
class CutFiles {
  public:
    const std::vector<std::filesystem::path>& of(const std::filesystem::path& table) {
        const std::filesystem::path folder = table.parent_path();
        if (read_.emplace(folder, true).second) {
            readFolder(folder);
        }
        return files_[table];
    }

  private:
    void readFolder(const std::filesystem::path& folder) {
        std::error_code error;  // a folder that cannot be read shows none
        std::filesystem::directory_iterator entry(folder.empty() ? "." : folder, error);
        while (!error && entry != std::filesystem::directory_iterator()) {
            const std::filesystem::path name = entry->path().filename();
            if (const auto table = tableOfCutFile(name.string())) {
                const std::filesystem::path path = folder / *table;
                if (files_[path].empty()) {
                    files_[path] = cutFilesOf(path);  // in the order of their offsets
                }
            }
            entry.increment(error);
        }
    }

    std::map<std::filesystem::path, bool> read_;
    std::map<std::filesystem::path, std::vector<std::filesystem::path>> files_;
};

ListRecord rowOf(const TableInfo& info, const Times& times, const std::vector<std::filesystem::path>& cutFiles) {
    const bool hasMessages = info.kind == TableKind::messages;
    ListRecord record;
    record.add("table", "", {info.name});
    record.add("path", "TABLE", {info.path.lexically_normal().string()});
    record.add("kind", "KIND", {std::string(hasMessages ? "messages" : "session")});
    record.add("messages", "MESSAGES", {hasMessages ? ListValue(info.messageCount) : ListValue()});
    record.add("bytes", "SIZE", bytesCell(info.fileSize));
    record.addTime("firstTime", "FIRST", info.firstTime, times);
    record.addTime("lastTime", "LAST", info.lastTime, times);
    record.add("openForWriting", "OPEN", openCell(info.openForWriting));
    record.add("cutFiles", "", pathsCell(cutFiles));
    record.add("", "CUT", {static_cast<std::int64_t>(cutFiles.size())});
    record.add("texts", "", {info.layout.texts});
    record.add("numbers", "", {info.layout.numbers});
    const std::vector<std::int64_t> tags(info.tags.begin(), info.tags.end());
    record.add("tags", "", {tags});
    std::vector<std::string> fields = info.layout.texts;
    fields.insert(fields.end(), info.layout.numbers.begin(), info.layout.numbers.end());
    record.add("", "FIELDS", hasMessages ? namesCell(fields) : ListCell{tags});
    record.add("problem", "", {info.problem.has_value() ? ListValue(std::string(info.problem->what())) : ListValue()});
    const std::optional<IndexInfo> index = indexOf(info);
    record.add("indexed", "", {index.has_value() ? ListValue(index->messages) : ListValue()});
    return record;
}

void list(Console& console, const ListOptions& options) {
    const std::vector<std::string> here{"."};
    TimesOfTables times(options.times, console);
    CutFiles cutFiles;
    std::unique_ptr<Listing> listing;
    for (const NamedFile& file : expandPaths(console, options.paths.empty() ? here : options.paths)) {
        Console::checkInterrupt();
        try {
            const TableInfo info = inspect(file.path);
            if (info.problem.has_value()) {
                console.warn(info.problem->what());
            }
            const ListRecord record = rowOf(info, times.of(sampleTime(info)), cutFiles.of(file.path));
            if (listing == nullptr) {
                listing = std::make_unique<Listing>(console, options.format, record.columns);
            }
            listing->add(record.row);
        } catch (const Error&) {
            skipOrThrow(console, file);
        }
    }
    if (listing != nullptr) {
        listing->end();
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<ListOptions>();
    app.add_option("paths", options->paths, "Tables, or folders of tables; without any, the current folder")
        ->type_name("PATH");
    declareListFormat(app, &options->format);
    declareTimes(app, &options->times);
    return [options](Console& console) { list(console, *options); };
}

}  // namespace

const Verb listVerb{"ls", "Lists tables",
                    "  # the tables of a folder\n"
                    "  tabulo ls /var/lib/engine\n"
                    "  # those that a process has open for writing\n"
                    "  tabulo ls -o ndjson | jq -r 'select(.openForWriting).path'\n",
                    declare};

}  // namespace tabulo::tool
