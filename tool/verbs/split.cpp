// split: the messages of a table in several new ones.
#include <fmt/format.h>

#include <charconv>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tool/listing.h"
#include "tool/status.h"
#include "tool/table_cells.h"
#include "tool/table_parts.h"
#include "tool/tables.h"
#include "tool/target_folder.h"
#include "tool/times.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct SplitOptions {
    std::string file;
    std::string by;
    std::string to;
    ListFormat format = ListFormat::text;
    TimeOptions times;
};

// By day or by hour, or else so many messages each.
struct SplitBy {
    bool day = false;
    bool hour = false;
    std::int64_t messages = 0;
};

SplitBy parseBy(const std::string& text) {
    constexpr std::string_view MESSAGES = "messages=";
    SplitBy by{.day = text == "day", .hour = text == "hour"};
    if (by.day || by.hour) {
        return by;
    }
    const char* const begin = text.data() + std::min(text.size(), MESSAGES.size());
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(begin, end, by.messages);
    if (!text.starts_with(MESSAGES) || parsed.ec != std::errc() || parsed.ptr != end || by.messages < 1) {
        throw UsageError(fmt::format("--by takes day, hour, or messages=N, not '{}'", shownText(text)));
    }
    return by;
}

// Names the tables so that they sort as they follow each other.
class PartNames {
  public:
    PartNames(const SplitBy& by, std::string table, std::int64_t messages, const Times& times)
        : by_(by), table_(std::move(table)), times_(times) {
        const std::int64_t parts = by.messages > 0 ? (messages + by.messages - 1) / by.messages : 0;
        width_ = std::max<std::size_t>(4, std::to_string(parts).size());
    }

    std::string of(const MessageView& message, std::int64_t number) const {
        if (by_.messages > 0) {
            return fmt::format("{}-{:0{}}", table_, number / by_.messages + 1, width_);
        }
        std::string part = by_.day ? times_.day(message.time()) : times_.hour(message.time()).substr(0, HOUR_LENGTH);
        const std::size_t space = part.find(' ');
        if (space != std::string::npos) {
            part[space] = 'T';
        }
        return fmt::format("{}-{}", table_, part);
    }

  private:
    static constexpr std::size_t HOUR_LENGTH = 13;  // "2026-11-20 19" without ":00"

    SplitBy by_;
    std::string table_;
    const Times& times_;
    std::size_t width_;
};

// Shares all messages up to the table's end out; their number.
std::int64_t shareOut(Console& console, Reader& reader, const Position& end, const PartNames& names,
                      TableParts* parts) {
    std::optional<Messages> messages(
        reader.messages(Query().before(end), console.watched("splitting " + shownPath(reader.path()))));
    std::int64_t count = 0;
    Position last;
    Position next = reader.begin();
    for (const MessageView& message : *messages) {
        parts->add(names.of(message, count), message);
        last = message.position();
        next = message.next();
        ++count;
    }
    Console::checkInterrupt();
    const bool isWhole = messages->ending() != Ending::dropped && next == end;
    messages.reset();  // with the memory of a large one
    if (!isWhole) {
        throw Failure(fmt::format("{} was dropped while it was split; nothing was made", shownPath(reader.path())));
    }
    if (reader.positionOf(count - 1) != last) {  // which counts by blocks
        throw Failure(fmt::format("{} does not hold the {} messages that were read", shownPath(reader.path()), count));
    }
    return count;
}

void print(Console& console, const SplitOptions& options, const TableParts& parts, const Times& times) {
    std::unique_ptr<Listing> listing;
    for (const auto& [name, part] : parts.parts()) {
        ListRecord record;
        record.add("table", "TABLE", {name});
        record.add("path", "", {(std::filesystem::path(options.to) / name).lexically_normal().string()});
        record.add("messages", "MESSAGES", {part.sum.messages});
        record.add("firstUid", "FIRST UID", {optionalValue(part.sum.firstUniformId)});
        record.add("lastUid", "LAST UID", {optionalValue(part.sum.lastUniformId)});
        record.addTime("firstTime", "FROM", part.firstTime, times);
        record.addTime("lastTime", "TO", part.lastTime, times);
        if (listing == nullptr) {
            listing = std::make_unique<Listing>(console, options.format, record.columns);
        }
        listing->add(record.row);
    }
    listing->end();
}

void run(Console& console, const SplitOptions& options) {
    const SplitBy by = parseBy(options.by);
    const std::vector<NamedFile> files = expandPaths(console, {options.file});
    if (files.size() != 1 || files[0].fromFolder) {
        throw Failure(fmt::format("{} is a folder; name one table", shownPath(options.file)));
    }
    Reader reader = std::move(openTables(console, files).front());
    const Position end = reader.end();
    const TableInfo info = inspect(files[0].path);
    if (info.problem.has_value()) {
        throw *info.problem;
    }
    if (info.messageCount == 0) {
        throw Failure(fmt::format("{} holds no messages", shownPath(options.file)));
    }
    const Times times(options.times, info.lastTime, console);
    if (by.messages == 0 && !times.unit().has_value()) {
        throw UsageError("the unit of the table's times cannot be guessed; --time-unit names it");
    }
    TargetFolder folder(options.to);
    TableParts parts(folder.unfinished(), reader.layout());
    const PartNames names(by, reader.table(), info.messageCount, times);
    const std::int64_t count = shareOut(console, reader, end, names, &parts);
    parts.finish(console);
    folder.finish();
    print(console, options, parts, times);
    console.say(fmt::format("{} messages in {} new table{}, read back and checked", count, parts.parts().size(),
                            parts.parts().size() == 1 ? "" : "s"));
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<SplitOptions>();
    app.add_option("file", options->file, "A message table")->type_name("FILE")->required();
    app.add_option("--by", options->by, "A new table for each day, each hour, or each N messages")
        ->type_name("day|hour|messages=N")
        ->required();
    app.add_option("--to", options->to, "The folder to make; it must not exist, or be empty")
        ->type_name("DIR")
        ->required();
    declareListFormat(app, &options->format);
    declareTimes(app, &options->times);
    return [options](Console& console) { run(console, *options); };
}

}  // namespace

const Verb splitVerb{"split", "Shares the messages of a table out to new tables",
                     "  # a table for each day of Chicago\n"
                     "  tabulo split orders --by day --tz America/Chicago --to orders.days\n"
                     "  # a table for each million messages\n"
                     "  tabulo split orders --by messages=1000000 --to orders.parts\n",
                     declare};

}  // namespace tabulo::tool
