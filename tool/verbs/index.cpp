// index: makes the side indexes of tables, by which single messages and ranges are found at once.
#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tabulo/index.h"
#include "tabulo/table_info.h"
#include "tool/listing.h"
#include "tool/status.h"
#include "tool/table_cells.h"
#include "tool/table_indexes.h"
#include "tool/tables.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct IndexOptions {
    std::vector<std::string> files;
    bool follow = false;
    bool check = false;
    ListFormat format = ListFormat::text;
};

// Tells what there is, and writes nothing.
void check(Console& console, const std::filesystem::path& path, IndexListing& listing) {
    const TableInfo info = inspect(path);
    IndexState state{path, info.messageCount, info.fileSize};
    state.index = inspectIndex(path);
    std::error_code unknown;
    if (!state.index.has_value() && std::filesystem::exists(indexPath(path), unknown)) {
        console.say(
            fmt::format("{} is not used: it covers nothing that is in the table now, is damaged, or is no index; "
                        "'tabulo index {}' makes it anew, or tells",
                        shownPath(indexPath(path)), shownPath(path)));
    }
    listing.add(state);
}

// False when the index of a table that was named cannot be made.
bool runTable(Console& console, const IndexOptions& options, const NamedFile& file, bool isOnly, IndexListing& listing,
              TableIndexes& indexes) {
    try {
        if (isOfKind(file.path, TableKind::sessionInfo)) {
            if (!file.fromFolder) {
                refuseKind(file.path, TableKind::sessionInfo);
            }
        } else if (options.check) {
            check(console, file.path, listing);
        } else {
            indexes.add(file.path, options.follow);
        }
        return true;
    } catch (const Error& error) {
        if (isOnly && !file.fromFolder) {
            throw;
        }
        console.flush();
        if (file.fromFolder) {
            console.warn(fmt::format("left out: {}", error.what()));
            return true;
        }
        console.say(error.what());
    } catch (const Failure& failure) {
        if (isOnly) {
            throw;
        }
        console.say(failure.what());
    }
    return false;
}

void run(Console& console, const IndexOptions& options) {
    IndexListing listing(console, options.format);
    TableIndexes indexes(console, listing);
    NewTables newTables(options.follow ? options.files : std::vector<std::string>{});
    const std::vector<NamedFile> files = expandPaths(console, options.files);
    if (files.empty() && !newTables.watchesFolders()) {
        throw Failure("there is no message table to index");
    }
    if (files.empty()) {
        console.say("there is no table yet: those that come are indexed");
    }
    std::size_t failed = 0;
    try {
        for (const NamedFile& file : files) {
            Console::checkInterrupt();
            failed += runTable(console, options, file, files.size() == 1, listing, indexes) ? 0U : 1U;
        }
    } catch (...) {
        listing.end();  // what was done
        throw;
    }
    listing.end();
    if (options.follow) {
        indexes.keep(std::move(newTables));
    }
    if (failed > 0) {
        throw Failure(fmt::format("{} of {} files could not be indexed", failed, files.size()));
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<IndexOptions>();
    app.add_option("files", options->files, "Message tables, or folders of tables")->type_name("FILE")->required();
    CLI::Option* follow = app.add_flag("-f,--follow", options->follow,
                                       "Keep the indexes up to date until interrupted, those of new tables too");
    app.add_flag("--check", options->check, "Tell what the indexes cover, and write nothing")->excludes(follow);
    declareListFormat(app, &options->format);
    return [options](Console& console) { run(console, *options); };
}

}  // namespace

const Verb indexVerb{"index", "Makes the side indexes of tables, so that an order in a large one is found at once",
                     "  # the index stands beside its table; again: covers what is new\n"
                     "  tabulo index orders\n"
                     "  # beside the writers, until Ctrl-C\n"
                     "  tabulo index --follow /var/lib/engine\n"
                     "  # the tables without one\n"
                     "  tabulo index --check . -o ndjson | jq -r 'select(.covered == null).path'\n",
                     declare};

}  // namespace tabulo::tool
