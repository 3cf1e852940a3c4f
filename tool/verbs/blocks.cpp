// blocks: what is recorded about each block of a message table.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tool/listing.h"
#include "tool/table_cells.h"
#include "tool/tables.h"
#include "tool/times.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct BlocksOptions {
    std::string file;
    ListFormat format = ListFormat::text;
    TimeOptions times;
};

ListCell rangeCell(const ValueRange<std::int32_t>& range) {
    return {ListRange{range.first, range.last}};
}

ListCell idsCell(const BlockRecord& block) {
    ListPairs<ListRange> ids;
    for (std::size_t i = 0; i < messageClassCount; ++i) {
        if (const auto& range = block.ids[i]) {
            ids.emplace_back(className(static_cast<MessageClass>(i)), ListRange{range->first, range->last});
        }
    }
    return {ids};
}

// The names, made different where they are not: they become keys.
std::vector<std::string> keysOf(std::vector<std::string> names) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        const bool repeats = std::count(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(i), names[i]) > 0;
        names[i] += names[i].empty() || repeats ? fmt::format("#{}", i) : "";
    }
    return names;
}

// How many of each filter's bits are set, in percent to a hundredth.
ListCell fillCell(const BlockRecord& block, const std::vector<std::string>& texts) {
    ListPairs<double> fill;
    std::string shown;
    for (std::size_t i = 0; i < block.filterBitsSet.size() && i < texts.size(); ++i) {
        const double percent = std::round(block.filterBitsSet[i] * 10000.0 / BlockRecord::filterBits) / 100;
        fill.emplace_back(texts[i], percent);
        shown += fmt::format("{}{} {:.1f}", shown.empty() ? "" : ", ", shownText(texts[i]), percent);
    }
    return block.closed ? ListCell{fill, shown} : ListCell{};
}

ListRecord rowOf(const BlockRecord& block, const std::vector<std::string>& texts, const Times& times) {
    ListRecord record;
    record.add("block", "BLOCK", {block.ordinal});
    record.add("offset", "OFFSET", {block.offset});
    record.add("length", "LENGTH", {block.length});
    record.add("closed", "CLOSED", {block.closed});
    record.add("firstMessage", "FIRST MSG", {block.firstMessage});
    record.add("messages", "MESSAGES", {std::int64_t{block.messageCount}});
    record.add("uids", "UIDS", rangeCell(block.uniformIds));
    record.add("seqs", "SEQS", rangeCell(block.seqNums));
    record.addTime("firstTime", "FROM", block.times.first, times);
    record.addTime("lastTime", "TO", block.times.last, times);
    record.add("ids", "IDS", idsCell(block));
    record.add("filterFill", "FILTER FILL %", fillCell(block, texts));
    return record;
}

// Where the table ends now: a writer that is faster than this would have it go on for ever.
std::int64_t endOf(Reader& reader) {
    try {
        return reader.end().offset;
    } catch (const Error&) {  // damage hides it, and the blocks end there
        return std::numeric_limits<std::int64_t>::max();
    }
}

void show(Console& console, const BlocksOptions& options) {
    const std::vector<NamedFile> files = expandPaths(console, {options.file});
    if (files.size() != 1 || files[0].fromFolder) {
        throw Failure(fmt::format("{} is a folder; name one table", shownPath(options.file)));
    }
    Reader reader = std::move(openTables(console, files).front());
    const std::vector<std::string> texts = keysOf(filteredTexts(reader.layout()));
    TimesOfTables times(options.times, console);
    std::unique_ptr<Listing> listing;
    Work work;
    work.progress = [](const Progress&) { Console::checkInterrupt(); };
    try {
        Blocks blocks = reader.blocks(work);
        const std::int64_t end = endOf(reader);
        for (const BlockRecord* block = blocks.next(); block != nullptr && block->offset < end; block = blocks.next()) {
            const ListRecord record = rowOf(*block, texts, times.of(block->times.last));
            if (listing == nullptr) {
                listing = std::make_unique<Listing>(console, options.format, record.columns);
            }
            listing->add(record.row);
        }
        if (blocks.ending() == Ending::dropped) {
            console.warn(fmt::format("{} was emptied while it was read; what it had still to give is gone",
                                     shownPath(options.file)));
        }
    } catch (const Error& error) {
        console.warn(error.what());
    }
    if (listing != nullptr) {
        listing->end();
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<BlocksOptions>();
    app.add_option("file", options->file, "A message table")->type_name("FILE")->required();
    declareListFormat(app, &options->format);
    declareTimes(app, &options->times);
    return [options](Console& console) { show(console, *options); };
}

}  // namespace

const Verb blocksVerb{"blocks", "Shows what is recorded about each block of a table",
                      "  # where the blocks lie, and what their ranges and filters hold\n"
                      "  tabulo blocks orders\n"
                      "  # the blocks whose filter of Symbol is more than half full\n"
                      "  tabulo blocks orders -o ndjson | jq 'select(.filterFill.Symbol > 50)'\n",
                      declare};

}  // namespace tabulo::tool
