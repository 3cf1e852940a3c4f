// info: what a table's file says about itself.
#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/table_info.h"
#include "tool/listing.h"
#include "tool/table_cells.h"
#include "tool/tables.h"
#include "tool/times.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct InfoOptions {
    std::vector<std::string> files;
    ListFormat format = ListFormat::text;
    TimeOptions times;
};

// The messages of each class; those in front of it when damage is met, which is told and becomes the table's problem.
ClassCounts countMessages(Console& console, TableInfo& info) {
    ClassCounts counts;
    try {
        const Work work = console.watched(fmt::format("counting {}", shownText(info.name)));
        Reader reader(info.path);
        Messages messages = messagesUntilNow(reader, work);
        while (const MessageView* message = messages.next()) {
            const auto messageClass = message->messageClass();
            counts.total += 1;
            ++(messageClass.has_value() ? counts.messages[static_cast<std::size_t>(*messageClass)]
                                        : counts.withoutClass);
        }
        counts.complete = messages.ending() == Ending::data;
        if (!counts.complete) {
            console.warn(fmt::format("{} was emptied while its messages were counted", shownPath(info.path)));
        }
    } catch (const Error& error) {
        counts.complete = false;
        if (!info.problem.has_value() || !isSameDamage(*info.problem, error)) {
            console.warn(error.what());
            info.problem = error;
        }
    }
    return counts;
}

void addLayout(const TableInfo& info, ListRecord* record) {
    const Layout& layout = info.layout;
    const bool hasMessages = info.kind == TableKind::messages;
    const auto title = [hasMessages](const char* text) { return hasMessages ? text : ""; };
    const auto value = [hasMessages](ListCell cell) { return hasMessages ? std::move(cell) : ListCell(); };
    record->add("texts", title("text fields"), value(namesCell(layout.texts)));
    record->add("numbers", title("number fields"), value(namesCell(layout.numbers)));
    record->add("filters", title("filters"), value(namesCell(filteredTexts(layout))));
    record->add("messagesPerBlock", title("messages a block"), value({std::int64_t{layout.messagesPerBlock}}));
    const std::vector<std::int64_t> tags(info.tags.begin(), info.tags.end());
    record->add("tags", hasMessages ? "" : "tags", hasMessages ? ListCell() : ListCell{tags});
}

void addCounts(const TableInfo& info, const ClassCounts& counts, ListRecord* record) {
    ListPairs<std::int64_t> byClass;
    ListPairs<std::int64_t> lastIds;
    for (std::size_t i = 0; i < messageClassCount; ++i) {
        const std::string name(className(static_cast<MessageClass>(i)));
        byClass.emplace_back(name, counts.messages[i]);
        if (info.lastIds[i].has_value()) {
            lastIds.emplace_back(name, *info.lastIds[i]);
        }
    }
    record->add("messages", "messages", {info.messageCount});
    record->add("closedBlocks", "closed blocks", {info.closedBlocks});
    record->add("openMessages", "in the open block", {std::int64_t{info.openMessages}});
    record->add("counts", counts.complete ? "by class" : "by class, so far", {byClass});
    record->add("withoutClass", counts.withoutClass > 0 ? "without a class" : "", {counts.withoutClass});
    record->add("countsComplete", "", {counts.complete});
    record->add("lastIds", "last ids", {lastIds});
    record->add("lastUid", "last uniform id", {optionalValue(info.lastUniformId)});
}

void addSequence(const std::string& key, const std::string& title, const std::optional<SequencePoint>& point,
                 const Times& times, ListRecord* record) {
    record->add(key, "", {point.has_value() ? ListValue(std::int64_t{point->seqNum}) : ListValue()});
    record->addTime(key + "Time", "", point.has_value() ? std::optional(point->time) : std::nullopt, times);
    record->add("", title,
                {{}, point.has_value() ? fmt::format("{} at {}", point->seqNum, times.text(point->time)) : "-"});
}

// The unit, as it was given or guessed.
ListCell unitCell(const Times& times, bool isGuessed) {
    if (!times.unit().has_value()) {
        return {{}, "not known (--time-unit)"};
    }
    const std::string name(timeUnitName(*times.unit()));
    return {name, isGuessed ? name + " (guessed)" : name};
}

void addMessages(Console& console, TableInfo& info, const Times& times, bool isGuessed, ListRecord* record) {
    addCounts(info, countMessages(console, info), record);
    addSequence("lastGood", "last good", info.lastGood, times, record);
    addSequence("firstPending", "first pending", info.firstPending, times, record);
    addSequence("lastPending", "last pending", info.lastPending, times, record);
    record->addTime("firstTime", "first time", info.firstTime, times);
    record->addTime("lastTime", "last time", info.lastTime, times);
    record->add("timeUnit", "time unit", unitCell(times, isGuessed));
}

// The same values of a table that has none of them: objects in JSON have the same keys whatever they tell of.
void addNoMessages(ListRecord* record) {
    for (const char* key : {"messages", "closedBlocks", "openMessages", "counts", "withoutClass", "countsComplete",
                            "lastIds", "lastUid"}) {
        record->add(key, "", {});
    }
    for (const char* key : {"lastGood", "firstPending", "lastPending"}) {
        record->add(key, "", {});
        record->add(std::string(key) + "Time", "", {});
        record->add(std::string(key) + "TimeRaw", "", {});
    }
    for (const char* key : {"firstTime", "firstTimeRaw", "lastTime", "lastTimeRaw", "timeUnit"}) {
        record->add(key, "", {});
    }
}

ListRecord recordOf(Console& console, TableInfo& info, const Times& times, bool isGuessed) {
    const bool hasMessages = info.kind == TableKind::messages;
    ListRecord record;
    record.add("table", "table", {info.name});
    record.add("path", "path", {info.path.string()});
    record.add("kind", "kind", {std::string(hasMessages ? "messages" : "session")});
    record.add("format", "format", {fmt::format("{}.{}", info.formatMajor, info.formatMinor)});
    record.add("bytes", "size",
               {info.fileSize, fmt::format("{} ({} bytes)", shownBytes(info.fileSize), info.fileSize)});
    record.add("headerBytes", "header", {info.headerSize, fmt::format("{} bytes", info.headerSize)});
    addLayout(info, &record);
    if (hasMessages) {
        addMessages(console, info, times, isGuessed, &record);
    } else {
        addNoMessages(&record);
    }
    record.add("closedCleanly", "closed cleanly", {info.closedCleanly});
    record.add("openForWriting", "open for writing", openCell(info.openForWriting));
    record.add("cutFiles", "cut files", pathsCell(cutFilesOf(info.path)));
    const std::optional<IndexInfo> index = indexOf(info);
    if (hasMessages) {
        record.add("", "side index",
                   {{},
                    index.has_value() ? fmt::format("covers {} messages, {}", index->messages, shownBytes(index->bytes))
                                      : "-"});
    }
    const bool isDamaged = info.problem.has_value();
    record.add("problem", isDamaged ? "problem" : "",
               {isDamaged ? ListValue(std::string(info.problem->what())) : ListValue()});
    record.add("indexed", "", {index.has_value() ? ListValue(index->messages) : ListValue()});
    return record;
}

void show(Console& console, const InfoOptions& options) {
    TimesOfTables times(options.times, console);
    bool isFirst = true;
    for (const NamedFile& file : expandPaths(console, options.files)) {
        Console::checkInterrupt();
        try {
            TableInfo info = inspect(file.path);
            if (info.problem.has_value()) {
                console.warn(info.problem->what());
            }
            const ListRecord record = recordOf(console, info, times.of(sampleTime(info)), options.times.unit.empty());
            console.write(isFirst || options.format == ListFormat::ndjson ? "" : "\n");
            isFirst = false;
            printRecord(console, options.format, record.columns, record.row);
        } catch (const Error&) {
            skipOrThrow(console, file);
        }
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<InfoOptions>();
    app.add_option("files", options->files, "Tables, or folders of tables")->type_name("FILE")->required();
    declareListFormat(app, &options->format);
    declareTimes(app, &options->times);
    return [options](Console& console) { show(console, *options); };
}

}  // namespace

const Verb infoVerb{"info", "Tells what a table says about itself",
                    "  # layout, counts, last ids and sequence numbers\n"
                    "  tabulo info orders\n"
                    "  # the next id for an application message out\n"
                    "  tabulo info orders -o ndjson | jq '.lastIds.APP_TO + 1'\n",
                    declare};

}  // namespace tabulo::tool
