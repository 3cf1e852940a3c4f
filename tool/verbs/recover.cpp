// recover: a new table from every whole message of a damaged one.
#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/damage.h"
#include "tool/listing.h"
#include "tool/new_table.h"
#include "tool/status.h"
#include "tool/table_cells.h"
#include "tool/tables.h"
#include "tool/target.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t BATCH_BYTES = std::size_t{1024} * 1024;

struct RecoverOptions {
    std::vector<std::string> files;
    std::string to;
    std::string layoutOf;
    bool dryRun = false;
    ListFormat format = ListFormat::text;
};

// The table and the cut files that were named.
struct Sources {
    std::filesystem::path table;
    SalvageOptions options;
};

Sources sourcesOf(Console& console, const std::vector<std::string>& arguments) {
    Sources sources;
    for (const NamedFile& file : expandPaths(console, arguments)) {
        if (file.fromFolder) {
            throw UsageError(fmt::format("{} is a folder; name the table", shownPath(file.path.parent_path())));
        }
        if (tableOfCutFile(file.path.filename().string()).has_value()) {
            sources.options.cutFiles = sources.options.cutFiles.value_or(std::vector<std::filesystem::path>());
            sources.options.cutFiles->push_back(file.path);
        } else if (sources.table.empty()) {
            sources.table = file.path;
        } else {
            throw UsageError(fmt::format("{} and {} are two tables; recover one at a time", shownPath(sources.table),
                                         shownPath(file.path)));
        }
    }
    if (sources.table.empty()) {
        throw UsageError("name the table, too, that the files were cut out of");
    }
    return sources;
}

Layout layoutOf(const std::filesystem::path& path) {
    const TableInfo info = inspect(path);
    if (info.kind != TableKind::messages) {
        refuseKind(path, info.kind);
    }
    return info.layout;
}

// The layout of the table, or that of another one which stands in for it.
Layout chooseLayout(const RecoverOptions& options, const std::filesystem::path& table) {
    if (!options.layoutOf.empty()) {
        return layoutOf(options.layoutOf);
    }
    try {
        return layoutOf(table);
    } catch (const Error& error) {
        switch (error.code()) {
            case Code::signature:
            case Code::fileSize:
            case Code::byteOrder:
            case Code::version:
            case Code::tableType:
            case Code::headerCorrupted:
            case Code::streamNotEnoughData:
            case Code::streamReadReset:
                throw Failure(
                    fmt::format("{}; if it is a message table whose header is lost, --layout-of OTHER takes "
                                "the layout from a table that was made alike",
                                error.what()));
            default:
                throw;
        }
    }
}

std::string idText(const std::optional<std::int32_t>& id, std::string_view none) {
    return id.has_value() ? fmt::format("uniform id {}", *id) : std::string(none);
}

void printGap(Console& console, ListFormat format, const Gap& gap) {
    if (format == ListFormat::text) {
        console.write(fmt::format("{}: lost at {}: {} bytes, between {} and {}\n", shownPath(gap.file), gap.offset,
                                  gap.length, idText(gap.uniformIdBefore, "the beginning"),
                                  idText(gap.uniformIdBehind, "the end")));
        return;
    }
    ListRecord record;
    record.add("record", "", {std::string("gap")});
    record.add("path", "", {gap.file.lexically_normal().string()});
    record.add("offset", "", {gap.offset});
    record.add("length", "", {gap.length});
    record.add("uidBefore", "", {optionalValue(gap.uniformIdBefore)});
    record.add("uidBehind", "", {optionalValue(gap.uniformIdBehind)});
    printRecord(console, format, record.columns, record.row);
}

void printResult(Console& console, const RecoverOptions& options, const std::filesystem::path& table,
                 const SalvageResult& result, const MessageSum& sum) {
    if (options.format == ListFormat::text) {
        std::string line = fmt::format("{}: {} whole messages", shownPath(table), sum.messages);
        line += sum.messages > 0 ? fmt::format(", uniform ids {} to {}", *sum.firstUniformId, *sum.lastUniformId) : "";
        line += result.fromCutFiles > 0 ? fmt::format(", {} of them from cut files", result.fromCutFiles) : "";
        line += result.gaps > 0 ? fmt::format("; {} bytes lost in {} place{}", result.gapBytes, result.gaps,
                                              result.gaps == 1 ? "" : "s")
                                : "; nothing lost";
        console.write(line + '\n');
        if (!options.dryRun) {
            console.write(fmt::format("{}: written, closed, opened again and verified: {} messages\n",
                                      shownPath(options.to), sum.messages));
        }
        return;
    }
    ListRecord record;
    record.add("record", "", {std::string("table")});
    record.add("table", "", {table.filename().string()});
    record.add("path", "", {table.lexically_normal().string()});
    record.add("to", "", {options.dryRun ? ListValue() : ListValue(options.to)});
    record.add("messages", "", {sum.messages});
    record.add("fromCutFiles", "", {result.fromCutFiles});
    record.add("firstUid", "", {optionalValue(sum.firstUniformId)});
    record.add("lastUid", "", {optionalValue(sum.lastUniformId)});
    record.add("gaps", "", {result.gaps});
    record.add("gapBytes", "", {result.gapBytes});
    printRecord(console, options.format, record.columns, record.row);
}

// Gives every whole message to `take`, and prints the gaps.
SalvageResult salvageAll(Console& console, const RecoverOptions& options, const Sources& sources,
                         const std::function<void(const MessageView&)>& take) {
    SalvageSink sink;
    sink.message = [&](const MessageView& message, const std::filesystem::path&) { take(message); };
    sink.gap = [&](const Gap& gap) { printGap(console, options.format, gap); };
    const SalvageResult result =
        salvage(sources.table, sink, sources.options, console.watched("recovering " + shownPath(sources.table)));
    Console::checkInterrupt();
    return result;
}

void run(Console& console, const RecoverOptions& options) {
    if (options.to.empty() && !options.dryRun) {
        throw UsageError("--to NEW is needed: the table to make");
    }
    Sources sources = sourcesOf(console, options.files);
    const Layout layout = chooseLayout(options, sources.table);
    if (!options.layoutOf.empty()) {
        sources.options.layout = layout;
    }
    MessageSum sum;
    SalvageResult result;
    std::optional<TargetFile> target;
    if (!options.to.empty()) {
        target.emplace(options.to);
    }
    if (options.dryRun) {
        result = salvageAll(console, options, sources, [&](const MessageView& message) { sum.add(message); });
    } else {
        BatchWriter writer(Writer::create(target->unfinished(), layout), BATCH_BYTES);
        result = salvageAll(console, options, sources, [&](const MessageView& message) {
            sum.add(message);
            if (writer.add(message)) {
                writer.flush();
            }
        });
        writer.close();
        checkNewTable(console, target->unfinished(), shownPath(options.to), sum);
        target->finish();
    }
    printResult(console, options, sources.table, result, sum);
    console.flush();
    if (result.gaps > 0) {
        console.warn(fmt::format("{} bytes of {} hold no whole message and are lost", result.gapBytes,
                                 shownPath(sources.table)));
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<RecoverOptions>();
    app.add_option("files", options->files,
                   "The table, and what recoveries have cut out of it; without such files all those beside the table")
        ->type_name("FILE")
        ->required();
    app.add_option("--to", options->to, "The table to make; it must not exist")->type_name("NEW");
    app.add_option("--layout-of", options->layoutOf, "Take the layout from this table, for one whose header is lost")
        ->type_name("OTHER");
    app.add_flag("--dry-run", options->dryRun, "Tell what would be recovered, and make nothing");
    declareListFormat(app, &options->format);
    return [options](Console& console) { run(console, *options); };
}

}  // namespace

const Verb recoverVerb{"recover", "Makes a new table from every whole message of a damaged one",
                       "  # what can be recovered, and what is lost\n"
                       "  tabulo recover orders --dry-run\n"
                       "  # every whole message, also from orders.cut-* beside it\n"
                       "  tabulo recover orders --to orders.recovered\n"
                       "  # a table whose header is lost, with the layout of yesterday's\n"
                       "  tabulo recover orders --layout-of orders.yesterday --to orders.recovered\n",
                       declare};

}  // namespace tabulo::tool
