// Writes the first inputs of every fuzz target: <program> <corpus directory>. Run it again when a file format or the
// form of an input changes; what the fuzzer has found since is in the corpus too and stays.
#include <filesystem>
#include <fstream>
#include <iostream>

#include "fuzz/harness.h"
#include "fuzz/tables.h"
#include "messagetable/block_summary.h"
#include "sessioninfo/session_info_table.h"
#include "tests/support/memory_platform.h"

namespace tabulo::internal::fuzz {

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes part(const Bytes& bytes, std::size_t begin, std::size_t end) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

// Conditions of conditions_input.h: nothing, and each kind once.
const std::vector<Bytes> CONDITIONS = {
    {},
    {0, 1, 2, 1, 3, 3, 1, 0, 1, 1, 1, 5, 0, 1, 9},
    {1, 1, 4, 1, 2, 4, 0, 9, 5, 1, 6, 2, 1, 1, 'D', 1, 1, '8'},
    {7, 1, 0, 1, 1, 0, 2, 'f', '1', 2, 0, 0, 1, 1, 'f', 1, 'g'},
    {8, 1, 0, 1, 1, 0, 0, 0, 9, 0, 2, 9, 2, 1, 1, 1, 0, 1, 0, 9, 0, 3},
};

class Corpus {
  public:
    explicit Corpus(std::filesystem::path root) : root_(std::move(root)) {}

    void put(const std::string& target, const std::string& name, const Bytes& bytes) {
        std::filesystem::create_directories(root_ / target);
        std::ofstream file(root_ / target / ("seed-" + name), std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!file.flush()) {
            throw std::runtime_error("the seed " + name + " cannot be written");
        }
    }

  private:
    std::filesystem::path root_;
};

// The file of a table with simple messages, closed or left as by a process that died.
Bytes tableFile(const MessageTableLayout& layout, std::int32_t messages, bool closed) {
    test::MemoryPlatform platform;
    const MessageTablePtr table = createTable(layout);
    requireSuccess(mt_open(table.get(), OpenMode::create), "creating a table");
    for (std::int32_t n = 1; n <= messages; ++n) {
        requireSuccess(writeMessage(table.get(), simpleMessage(n, layout)), "a message");
    }
    if (closed) {
        requireSuccess(mt_close(table.get()), "closing");
    }
    return platform.bytes(TABLE_PATH);
}

void putTables(Corpus* corpus) {
    for (std::uint8_t l = 0; l < layouts().size(); ++l) {
        const MessageTableLayout& layout = layouts()[l];
        const std::string name = "layout" + std::to_string(l) + "-";
        // Only one of the two targets does something else with a file than to read it: the prefix is for that one.
        const auto putFile = [&](const std::string& what, const Bytes& prefix, const Bytes& file) {
            corpus->put("message_table", what, joined({{l}, prefix, file}));
            corpus->put("public_api", what, joined({{l}, file}));
        };
        for (const std::int32_t messages : {0, 1, layout.messagesPerBlock, 2 * layout.messagesPerBlock + 1}) {
            const bool closed = messages != 1;
            const Bytes file = tableFile(layout, messages, closed);
            const Bytes& conditions = CONDITIONS[static_cast<std::size_t>(messages) % CONDITIONS.size()];
            const Bytes prefix = {static_cast<std::uint8_t>(messages), static_cast<std::uint8_t>(conditions.size())};
            putFile(name + std::to_string(messages), joined({prefix, conditions}), file);
        }
        // A full block without its length word, one without its footer, and a cut frame.
        const Bytes whole = tableFile(layout, layout.messagesPerBlock, true);
        const std::size_t header = tableFile(layout, 0, true).size();
        Bytes open = whole;
        std::fill_n(open.begin() + static_cast<std::ptrdiff_t>(header), BLOCK_LENGTH_SIZE, std::uint8_t{0});
        const auto footer = static_cast<std::size_t>(mfrX_footerSize(&layout));
        putFile(name + "no-length", {2, 0}, open);
        putFile(name + "no-footer", {1, 0}, part(open, 0, open.size() - footer));
        const Bytes one = tableFile(layout, 1, false);
        putFile(name + "torn", {3, 0}, part(one, 0, one.size() - 9));
        corpus->put("frame", name + "frames", joined({{l}, part(whole, header + 8, whole.size() - footer)}));
        corpus->put("frame", name + "torn", joined({{l}, part(whole, header + 8, whole.size() - footer - 7)}));
        for (std::size_t i = 0; i < CONDITIONS.size(); ++i) {
            const auto size = static_cast<std::uint8_t>(CONDITIONS[i].size());
            // Bloom filters make a footer large: the layout that has one gets one seed.
            if (layout.summarisedStringFieldCount == 0 || i == 3) {
                corpus->put("block_footer", name + std::to_string(i),
                            joined({{l, size}, CONDITIONS[i], part(whole, whole.size() - footer, whole.size())}));
            }
        }
    }
}

void putSessions(Corpus* corpus) {
    for (const int count : {1, 6, 32}) {
        test::MemoryPlatform platform;
        SessionInfoTags tags;
        tags.count = count;
        std::array<std::int64_t, MAX_SESSION_INFO_TAGS> values{};
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
            tags.tags[i] = static_cast<std::int32_t>(i) + 1;
            values[i] = static_cast<std::int64_t>(i) * 1000;
        }
        KSVTboTableConfig* config = tableConfig_create(TABLE_NAME, 1);
        requireSuccess(tableConfig_setPath(config, 0, ROOT), "a path");
        requireSuccess(tableConfig_setParams(config, nullptr, &tags), "tags");
        SessionInfoTable* table = si_create(config);
        requireSuccess(si_init(table, OpenMode::create), "creating a session table");
        const Bytes empty = platform.bytes(TABLE_PATH);
        requireSuccess(si_write(table, count, tags.tags.data(), values.data()), "values");
        const Bytes file = platform.bytes(TABLE_PATH);
        si_destroy(table);
        const Bytes prefix = {static_cast<std::uint8_t>(count - 1), static_cast<std::uint8_t>(count)};
        const std::string name = std::to_string(count);
        corpus->put("session_info", name, joined({prefix, file}));
        corpus->put("session_info", name + "-empty", joined({prefix, empty}));
        corpus->put("session_info", name + "-cut", joined({prefix, part(file, 0, file.size() - 3)}));
    }
}

// The third block of an index said to begin where the first one does.
Bytes leadingBack(const MessageTableLayout& layout) {
    const std::size_t record = 16 + 2 * (296 + 2 * (36 + 9 * static_cast<std::size_t>(layout.numericFieldCount)));
    const std::size_t header = tableFile(layout, 0, true).size();
    const auto byte = [](std::size_t number, unsigned at) { return static_cast<std::uint8_t>(number >> (8 * at)); };
    return {3, byte(record, 0), byte(record, 1), 4, byte(header, 0), byte(header, 1), byte(header, 2), 0};
}

// What is written over an index: nothing, ranges and lengths of the first run's blocks, keys and numbers of messages,
// places of runs and parts.
void putIndexes(Corpus* corpus) {
    const Bytes none;
    const Bytes starts = {3, 16, 0, 8, 40, 0, 0, 0, 0, 0, 0, 0, 3, 24, 0, 2, 255, 255};
    const Bytes keys = {4, 8, 0, 8, 0, 0, 0, 0, 24, 0, 1, 200, 5, 20, 0, 4, 255, 255, 255, 127};
    const Bytes runs = {1, 64, 0, 16, 2, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 40, 0, 0, 0, 2, 16, 0, 4, 9, 9, 0, 0};
    const Bytes covered = {0, 48, 0, 8, 1, 1, 0, 0, 0, 0, 0, 0, 0, 56, 0, 4, 3, 0, 0, 0};
    for (std::uint8_t l = 0; l < layouts().size(); ++l) {
        std::size_t number = 0;
        for (const Bytes& written : {none, starts, keys, runs, covered, leadingBack(layouts()[l])}) {
            const Bytes& conditions = CONDITIONS[number % CONDITIONS.size()];
            for (const std::uint8_t mends : Bytes{2, 3}) {
                const auto size = static_cast<std::uint8_t>(conditions.size());
                corpus->put("side_index",
                            "layout" + std::to_string(l) + "-" + std::to_string(number) + (mends == 3 ? "-mended" : ""),
                            joined({{l, mends, 0, size}, conditions, written}));
            }
            number += 1;
        }
    }
}

// A message as messageFrom reads it: ids and numbers of one byte, texts of few letters.
Bytes messageBytes(std::uint8_t n, const MessageTableLayout& layout, std::uint8_t letters = 2) {
    Bytes bytes = {n, n, 0, 1, n, n, 1, 'D', 0, 0};
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        bytes = joined({bytes, {3, n}});
    }
    for (std::int32_t i = 0; i < layout.stringFieldCount; ++i) {
        bytes = joined({bytes, {letters, 'f', static_cast<std::uint8_t>('0' + n)}, Bytes(letters - 2U, 'x')});
    }
    return bytes;
}

void putConditionsAndOperations(Corpus* corpus) {
    constexpr std::uint8_t WRITE = 0;
    for (std::uint8_t l = 0; l < layouts().size(); ++l) {
        const MessageTableLayout& layout = layouts()[l];
        const std::string name = "layout" + std::to_string(l) + "-";
        const Bytes messages = joined({messageBytes(1, layout), messageBytes(2, layout)});
        Bytes writes;
        for (std::uint8_t n = 1; n <= 5; ++n) {
            writes = joined({writes, {WRITE}, messageBytes(n, layout)});
        }
        for (std::size_t i = 0; i < CONDITIONS.size(); ++i) {
            const Bytes& conditions = CONDITIONS[i];
            const auto size = static_cast<std::uint8_t>(conditions.size());
            corpus->put("query_conditions", name + std::to_string(i), joined({{l, 1}, messages, conditions}));
            corpus->put("operations", name + "query" + std::to_string(i),
                        joined({{l, 1, 2}, writes, {3, 0, size}, conditions, {3, 1, size}, conditions}));
        }
        const Bytes reads = {4, 1, 5, 5, 5, 6, 0, 6, 1, 7, 0, 0, 7, 1, 1, 8, 0, 0, 1, 0, 9, 0, 2, 9, 1, 4};
        corpus->put("operations", name + "read", joined({{l, 1, 2}, writes, reads, {5, 5, 5, 5}}));
        corpus->put("operations", name + "crash",
                    joined({{l, 1}, writes, {11, 1}, reads, {12}, messageBytes(6, layout), {1, 60}, {6, 0}}));
        corpus->put("operations", name + "fault",
                    joined({{l, 1},
                            writes,
                            {13, 1, 20},
                            messageBytes(6, layout),
                            {13, 0, 0},
                            messageBytes(7, layout),
                            {14, 1},
                            writes,
                            {15, 1, 2, 6, 1}}));
        // A reader's iterator stands before half a frame, which a shorter message replaces.
        corpus->put("operations", name + "half-frame",
                    joined({{l, 1, 2},
                            writes,
                            {4, 1, 12},
                            messageBytes(6, layout, 20),
                            {1, 80, WRITE},
                            messageBytes(7, layout),
                            {5, 5, 6, 1}}));
        corpus->put("operations", name + "raw",
                    joined({{l, 1, 10, 1}, messageBytes(1, layout), {10, 0, 3, 9, 9, 9, 6, 0}}));
        corpus->put("operations", name + "session",
                    {l, 0xf0, 2, 0xf0, 4, 1, 7, 0xf0, 1, 0xf0, 5, 2, 8, 0xf0, 0, 0xf0, 3});
    }
}

}  // namespace

}  // namespace tabulo::internal::fuzz

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::cerr << "usage: " << arguments[0] << " <corpus directory>\n";
        return 2;
    }
    tabulo::internal::fuzz::Corpus corpus(arguments[1]);
    tabulo::internal::fuzz::putTables(&corpus);
    tabulo::internal::fuzz::putSessions(&corpus);
    tabulo::internal::fuzz::putConditionsAndOperations(&corpus);
    tabulo::internal::fuzz::putIndexes(&corpus);
    return 0;
}
