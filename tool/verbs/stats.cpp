// stats: how many messages there are of what.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/table_info.h"
#include "tool/group_key.h"
#include "tool/listing.h"
#include "tool/message_groups.h"
#include "tool/message_source.h"
#include "tool/table_cells.h"
#include "tool/tables.h"
#include "tool/times.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t BAR_WIDTH = 24;

struct StatsOptions {
    SourceOptions source;
    std::vector<std::string> by;
    ListFormat format = ListFormat::text;
};

// The tables' names; their paths where two have the same.
std::vector<std::string> namesOf(const std::vector<Reader>& readers) {
    std::vector<std::string> names;
    for (const Reader& reader : readers) {
        const auto same = [&reader](const Reader& other) { return other.table() == reader.table(); };
        const bool isAlone = std::count_if(readers.begin(), readers.end(), same) == 1;
        names.push_back(isAlone ? reader.table() : reader.path().lexically_normal().string());
    }
    return names;
}

std::vector<GroupKeys> keysOf(const std::vector<Reader>& readers, const std::vector<std::string>& names,
                              const std::vector<GroupPart>& parts, const Times& times) {
    std::vector<GroupKeys> keys;
    bool isKnown = false;
    for (std::size_t i = 0; i < readers.size(); ++i) {
        keys.emplace_back(parts, readers[i].layout(), names[i], times);
        isKnown = isKnown || keys.back().hasFields();
    }
    if (!isKnown) {
        const Layout& layout = readers.front().layout();
        std::vector<std::string> fields = layout.texts;
        fields.insert(fields.end(), layout.numbers.begin(), layout.numbers.end());
        throw UsageError(fmt::format("--by: no table has these fields; {} has {}", shownText(names.front()),
                                     fields.empty() ? "none" : namesCell(fields).text));
    }
    return keys;
}

std::string shareText(std::int64_t messages, std::int64_t all, std::int64_t most) {
    const auto share = static_cast<double>(messages);
    const auto bar =
        static_cast<std::size_t>(std::lround(share / static_cast<double>(most) * static_cast<double>(BAR_WIDTH)));
    return fmt::format("{:5.1f} % {}", share * 100 / static_cast<double>(all),
                       std::string(std::max(bar, std::size_t{1}), '#'));
}

void print(Console& console, const StatsOptions& options, const std::vector<GroupPart>& parts,
           const MessageGroups& groups, const Times& times) {
    const bool byKey = std::any_of(parts.begin(), parts.end(), [](const GroupPart& part) { return isTime(part.by); });
    const std::vector<const MessageGroup*> sorted = groups.sorted(byKey);
    std::int64_t all = 0;
    std::int64_t most = 0;
    for (const MessageGroup* group : sorted) {
        all += group->messages;
        most = std::max(most, group->messages);
    }
    std::unique_ptr<Listing> listing;
    for (const MessageGroup* group : sorted) {
        Console::checkInterrupt();
        ListRecord record;
        const std::vector<ListValue> values = keyValues(group->key);
        for (std::size_t i = 0; i < parts.size(); ++i) {
            std::string title = parts[i].by == GroupBy::field ? parts[i].field : parts[i].name;
            std::transform(title.begin(), title.end(), title.begin(), [&parts, i](char letter) {
                const bool isLower = letter >= 'a' && letter <= 'z' && parts[i].by != GroupBy::field;
                return static_cast<char>(isLower ? letter - 'a' + 'A' : letter);
            });
            record.add(parts[i].name, shownText(title), {values[i]});
        }
        record.add("messages", "MESSAGES", {group->messages});
        record.add("", "SHARE", {{}, shareText(group->messages, all, most)});
        record.add("bytes", "SIZE", bytesCell(group->bytes));
        record.addTime("firstTime", "FIRST", group->firstTime, times);
        record.addTime("lastTime", "LAST", group->lastTime, times);
        record.add("peakPerSecond", "PEAK/S",
                   {times.unit().has_value() ? ListValue(std::int64_t{group->peak}) : ListValue()});
        if (listing == nullptr) {
            listing = std::make_unique<Listing>(console, options.format, record.columns);
        }
        listing->add(record.row);
    }
    if (listing != nullptr) {
        listing->end();
    }
}

void show(Console& console, const StatsOptions& options) {
    std::vector<GroupPart> parts;
    for (const std::string& name : options.by) {
        parts.push_back(groupPartNamed(name));
    }
    MessageSource source(console, options.source, {});
    const Times& times = source.times();
    const std::vector<std::string> names = namesOf(source.readers());
    const bool hasTimes =
        std::any_of(parts.begin(), parts.end(), [](const GroupPart& part) { return isTime(part.by); });
    if (hasTimes && source.hasMessages() && !times.unit().has_value()) {
        throw UsageError("--by: the unit of the tables' times cannot be guessed; --time-unit tells it");
    }
    std::vector<GroupKeys> keys = keysOf(source.readers(), names, parts, times);
    source.begin("counting", false);
    MessageGroups groups;
    while (const MessageView* message = source.next()) {
        groups.add(keys[source.table()].of(*message), static_cast<std::int64_t>(message->frame().size()),
                   message->time(), times.second(message->time()));
    }
    print(console, options, parts, groups, times);
    console.flush();
    source.explain();
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<StatsOptions>();
    app.add_option("FILE", options->source.files, "Message tables, and folders of them")->required()->type_name("");
    options->source.merge = "time";
    app.add_option("--by", options->by,
                   "Group by type, class, table, field:NAME, minute, hour or day, or by several of them")
        ->type_name("KEY")
        ->delimiter(',')
        ->allow_extra_args(false);
    declareListFormat(app, &options->format);
    declareSelection(app, &options->source.selection);
    return [options](Console& console) { show(console, *options); };
}

}  // namespace

const Verb statsVerb{"stats", "Counts messages by type, class, table, field or time",
                     "  # the messages of each type\n"
                     "  tabulo stats orders --by type\n"
                     "  # of each hour in Berlin, over all tables of a folder\n"
                     "  tabulo stats /var/lib/engine --by hour --tz Europe/Berlin\n"
                     "  # of each symbol and direction\n"
                     "  tabulo stats orders --by field:Symbol,class\n"
                     "  # the rejects of each minute since half past seven\n"
                     "  tabulo stats orders --by minute --type 3,j --since 19:30\n",
                     declare};

}  // namespace tabulo::tool
