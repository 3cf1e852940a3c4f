#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <limits>
#include <ranges>
#include <type_traits>

#include "tabulo/reader.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"
#include "tests/query/random_table.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::Random;
using ApiBlocks = TableTest;

static_assert(std::ranges::input_range<Blocks>);
static_assert(std::input_iterator<Blocks::Iterator>);
static_assert(std::is_same_v<std::ranges::range_reference_t<Blocks>, const BlockRecord&>);
static_assert(!std::is_copy_constructible_v<Blocks> && std::is_nothrow_move_constructible_v<Blocks>);
static_assert(BlockRecord::filterBits == 10000);

using FilterBits = std::bitset<10000>;

std::uint32_t rotatedLeft(std::uint32_t value) {
    return (value << 5) | (value >> 27);
}

// Sets the bits of a text as the description of the format tells.
void addToFilter(FilterBits& bits, std::string_view text) {
    const std::string_view key = text.substr(0, text.find('\0'));
    std::array<std::uint32_t, 7> h = {0, 5381, 0, 0, static_cast<std::uint32_t>(key.size()), 0, 0};
    for (const char character : key) {
        const std::uint32_t plain = static_cast<std::uint8_t>(character);
        const auto c = static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<std::int8_t>(character)));
        h[0] = 31 * h[0] + c;
        h[1] = 33 * h[1] + plain;
        h[2] = plain + (h[2] << 6) + (h[2] << 16) - h[2];
        h[3] = (h[3] << 4) + c;
        const std::uint32_t g = h[3] & 0xF0000000U;
        h[3] = (h[3] ^ (g >> 24)) & ~g;
        h[4] = rotatedLeft(h[4]) ^ c;
        h[5] = (h[5] * 0x811C9DC5U) ^ c;
        h[6] += c;
        h[6] += h[6] << 10;
        h[6] ^= h[6] >> 6;
    }
    h[6] += h[6] << 3;
    h[6] ^= h[6] >> 11;
    h[6] += h[6] << 15;
    for (const std::uint32_t hash : h) {
        bits.set((hash >> 10) % 10000);
    }
}

template <typename T>
void widen(std::optional<ValueRange<T>>& range, T value) {
    range = range.has_value() ? ValueRange<T>{std::min(range->first, value), std::max(range->last, value)}
                              : ValueRange<T>{value, value};
}

// The range of a numeric field over some messages: of the type of its first value; without any bounds from the first
// value of the other type, or the first NaN, on.
std::optional<ValueRange<Number>> numberRange(std::span<const StoredMessage> messages, std::size_t field) {
    constexpr double infinite = std::numeric_limits<double>::infinity();
    std::optional<ValueRange<double>> doubles;
    std::optional<ValueRange<std::int64_t>> integers;
    bool unbounded = false;
    for (const StoredMessage& message : messages) {
        const Number value = field < message.numbers.size() ? message.numbers[field] : Number();
        if (const auto* number = std::get_if<double>(&value)) {
            if (std::isnan(*number)) {
                unbounded = true;
            } else {
                widen(doubles, *number);
            }
        } else if (const auto* integer = std::get_if<std::int64_t>(&value)) {
            widen(integers, *integer);
        }
    }
    if (unbounded || (doubles.has_value() && integers.has_value())) {
        return ValueRange<Number>{-infinite, infinite};
    }
    if (doubles.has_value()) {
        return ValueRange<Number>{doubles->first, doubles->last};
    }
    if (integers.has_value()) {
        return ValueRange<Number>{integers->first, integers->last};
    }
    return std::nullopt;
}

std::int32_t filterBitsOf(std::span<const StoredMessage> messages, std::size_t text) {
    FilterBits bits;
    for (const StoredMessage& message : messages) {
        const StoredText value = text == 0                         ? message.text0
                                 : text == 1                       ? message.text1
                                 : text - 2 < message.texts.size() ? message.texts[text - 2]
                                                                   : StoredText();
        if (value.has_value()) {
            addToFilter(bits, *value);
        }
    }
    return static_cast<std::int32_t>(bits.count());
}

// What is to be told about the block that begins with message `first`.
BlockRecord expectedRecord(const StoredTable& table, std::size_t first) {
    const Layout& layout = table.writer.layout();
    const std::size_t count = std::min(table.perBlock(), table.count() - first);
    const std::span<const StoredMessage> messages = std::span(table.messages).subspan(first, count);
    BlockRecord record{.ordinal = static_cast<std::int64_t>(first / table.perBlock()),
                       .firstMessage = static_cast<std::int64_t>(first),
                       .offset = table.place(first).block,
                       .closed = count == table.perBlock(),
                       .messageCount = static_cast<std::int32_t>(count)};
    const Position behind = table.place(first + count);
    record.length = (record.closed ? behind.block : behind.offset) - record.offset;
    std::optional<ValueRange<std::int32_t>> seqNums;
    std::optional<ValueRange<std::int32_t>> uniformIds;
    std::optional<ValueRange<std::int64_t>> times;
    for (const StoredMessage& message : messages) {
        widen(seqNums, message.seqNum);
        widen(uniformIds, message.uniformId);
        widen(times, message.time);
        if (const std::optional<MessageClass> kind = classOf(message.id); kind.has_value()) {
            widen(record.ids[static_cast<std::size_t>(*kind)], message.id);
        }
    }
    record.seqNums = *seqNums;
    record.uniformIds = *uniformIds;
    record.times = *times;
    for (std::size_t i = 0; i < layout.numbers.size(); ++i) {
        record.numbers.push_back(numberRange(messages, i));
    }
    const auto summarised =
        static_cast<std::size_t>(layout.summarisedTexts.value_or(static_cast<std::int32_t>(layout.texts.size()) + 2));
    for (std::size_t i = 0; i < summarised; ++i) {
        record.filterBitsSet.push_back(filterBitsOf(messages, i));
    }
    return record;
}

void expectSame(const BlockRecord& record, const BlockRecord& expected) {
    EXPECT_EQ(record.ordinal, expected.ordinal);
    EXPECT_EQ(record.firstMessage, expected.firstMessage);
    EXPECT_EQ(record.offset, expected.offset);
    EXPECT_EQ(record.length, expected.length);
    EXPECT_EQ(record.closed, expected.closed);
    EXPECT_EQ(record.messageCount, expected.messageCount);
    EXPECT_EQ(record.seqNums, expected.seqNums);
    EXPECT_EQ(record.uniformIds, expected.uniformIds);
    EXPECT_EQ(record.times, expected.times);
    EXPECT_EQ(record.ids, expected.ids);
    EXPECT_EQ(record.numbers, expected.numbers);
    EXPECT_EQ(record.filterBitsSet, expected.filterBitsSet);
}

// All blocks of a table against its messages.
void expectBlocksOf(const StoredTable& table) {
    Blocks blocks = Reader(table.writer.path()).blocks();
    EXPECT_EQ(blocks.current(), nullptr);
    for (std::size_t first = 0; first < table.count(); first += table.perBlock()) {
        SCOPED_TRACE("the block that begins with message " + std::to_string(first));
        const BlockRecord* record = blocks.next();
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(blocks.current(), record);
        EXPECT_EQ(blocks.ending(), Ending::none);
        expectSame(*record, expectedRecord(table, first));
    }
    EXPECT_EQ(blocks.next(), nullptr);
    EXPECT_EQ(blocks.current(), nullptr);
    EXPECT_EQ(blocks.ending(), Ending::data);
}

TEST(ApiBlockFilter, OfThisTestSetsTheBitsThatTheDescriptionOfTheFormatGives) {
    const auto bitsOf = [](std::string_view key) {
        FilterBits bits;
        addToFilter(bits, key);
        return bits;
    };
    const auto expected = [](std::initializer_list<std::size_t> places) {
        FilterBits bits;
        for (const std::size_t place : places) {
            bits.set(place);
        }
        return bits;
    };
    EXPECT_EQ(bitsOf(""), expected({0, 5}));
    EXPECT_EQ(bitsOf("A1"), expected({2, 5724, 4164, 1, 0, 1155, 5510}));
    EXPECT_EQ(bitsOf("ACME"), expected({1956, 9926, 7128, 278, 6241, 2975, 9871}));
    EXPECT_EQ(bitsOf("\x67\x72\xFC\x6E"), expected({3103, 1316, 4504, 440, 6989, 4085, 7607}));
}

TEST_F(ApiBlocks, AreTheOpenOneAndAllClosedOnesOfTablesOfEverySize) {
    for (std::int32_t count = 0; count <= 10; ++count) {
        SCOPED_TRACE(count);
        StoredTable table(directory.file("t" + std::to_string(count)), layout, simpleMessages(count));
        expectBlocksOf(table);
        table.writer.close();
        expectBlocksOf(table);
    }
}

TEST_F(ApiBlocks, AreARangeForTheLanguage) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Blocks blocks = Reader(path()).blocks();
    std::vector<std::int32_t> counts;
    for (const BlockRecord& block : blocks) {
        counts.push_back(block.messageCount);
    }
    EXPECT_EQ(counts, (std::vector<std::int32_t>{3, 3, 2}));
    Blocks others = Reader(path()).blocks();
    EXPECT_EQ(std::ranges::count_if(others, [](const BlockRecord& block) { return block.closed; }), 2);
    EXPECT_TRUE(Blocks::Iterator() == std::default_sentinel);
}

TEST_F(ApiBlocks, KeepTheirPlaceWhenTheyAreMovedAndSaySoWhenTheyWereMovedFrom) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Blocks blocks = Reader(path()).blocks();
    blocks.next();
    Blocks moved = std::move(blocks);
    EXPECT_EQ(moved.current()->ordinal, 0);
    EXPECT_EQ(moved.next()->ordinal, 1);
    // NOLINTBEGIN: what a move leaves is what is tested
    EXPECT_TABULO_ERROR(tableClosed, blocks.next());
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(blocks.begin()));
    EXPECT_EQ(blocks.current(), nullptr);
    // NOLINTEND
}

TEST_F(ApiBlocks, TellRangesOfNumbersOfEveryKind) {
    layout = {.numbers = {"a", "b", "c", "d", "e"}, .messagesPerBlock = 3};
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const auto integer = [](std::int64_t value) { return Number(value); };
    const StoredTable table(
        path(), layout,
        {{.numbers = {Number(), 1.5, integer(7), integer(1), std::nan("")}},
         {.numbers = {Number(), Number(), integer(-7), 2.0, 3.0}},
         {.numbers = {Number(), -2.5, Number(), integer(3), 4.0}},
         {.numbers = {integer(std::numeric_limits<std::int64_t>::min()), infinite, integer(0), 1.0, Number()}},
         {.numbers = {integer(std::numeric_limits<std::int64_t>::max()), 0.0, integer(0), std::nan(""), Number()}}});
    expectBlocksOf(table);
    Blocks blocks = Reader(path()).blocks();
    const std::vector<std::optional<ValueRange<Number>>> closed = {
        std::nullopt, ValueRange<Number>{-2.5, 1.5}, ValueRange<Number>{integer(-7), integer(7)},
        ValueRange<Number>{-infinite, infinite}, ValueRange<Number>{-infinite, infinite}};
    EXPECT_EQ(blocks.next()->numbers, closed);
    EXPECT_EQ(blocks.next()->numbers[4], std::nullopt);
}

TEST_F(ApiBlocks, TellNothingOfClassesThatTheyHoldNoMessageOf) {
    layout.messagesPerBlock = 2;
    const StoredTable table(path(), layout, {{.id = 0}, {.id = -1}, {.id = -5}, {.id = -6}, {.id = 2147483647}});
    Blocks blocks = Reader(path()).blocks();
    std::array<std::optional<ValueRange<std::int32_t>>, messageClassCount> ids{};
    ids[static_cast<std::size_t>(MessageClass::appTo)] = {0, 0};
    EXPECT_EQ(blocks.next()->ids, ids);
    ids = {};
    EXPECT_EQ(blocks.next()->ids, ids);
    ids[static_cast<std::size_t>(MessageClass::resent)] = {2147483647, 2147483647};
    EXPECT_EQ(blocks.next()->ids, ids);
}

TEST_F(ApiBlocks, TellTheirFiltersForTheTextsThatHaveOne) {
    layout.messagesPerBlock = 2;
    for (const std::int32_t summarised : {0, 1, 2, 3, 4}) {
        SCOPED_TRACE(summarised);
        layout.summarisedTexts = summarised;
        const StoredTable table(directory.file("t" + std::to_string(summarised)), layout,
                                {{.text0 = "", .texts = {std::string("in\0side", 7), "a\x80"}},
                                 {.text0 = "ACME", .text1 = "", .texts = {StoredText(), "\xff"}},
                                 {.text0 = "", .text1 = "A1", .texts = {"in", StoredText()}}});
        expectBlocksOf(table);
    }
}

TEST_F(ApiBlocks, OfRandomTablesAreAsTheirMessagesTell) {
    const std::uint32_t seed = internal::test::testSeed();
    Random random(seed);
    for (int t = 0; t < 30 * internal::test::testEffort() && !HasFailure(); ++t) {
        SCOPED_TRACE("table " + std::to_string(t) + " of seed " + std::to_string(seed));
        layout.messagesPerBlock = random.between(1, 7);
        StoredTable table(directory.file("r" + std::to_string(t)), layout);
        const std::int32_t count = random.below(40);
        const auto text = [&] {
            return random.percent(20) ? StoredText() : StoredText("text" + std::to_string(random.below(9)));
        };
        const auto number = [&]() -> Number {
            const std::int32_t kind = random.below(20);
            return kind < 5    ? Number()
                   : kind < 12 ? Number(std::int64_t{random.between(-9, 9)})
                               : Number(0.25 * random.between(-9, 9));
        };
        for (std::int32_t n = 0; n < count; ++n) {
            table.append({.uniformId = random.between(-20, 100),
                          .seqNum = random.between(-20, 100),
                          .id = static_cast<std::int32_t>(random.bits()),
                          .time = static_cast<std::int64_t>(random.bits()) * random.between(-1000, 1000),
                          .text0 = text(),
                          .text1 = text(),
                          .texts = {text(), text()},
                          .numbers = {number(), number()}});
        }
        expectBlocksOf(table);
    }
}

TEST_F(ApiBlocks, GoOnWithBlocksThatWereBegunSince) {
    StoredTable table(path(), layout, simpleMessages(3));
    Blocks blocks = Reader(path()).blocks();
    ASSERT_NE(blocks.next(), nullptr);
    EXPECT_EQ(blocks.next(), nullptr);
    EXPECT_EQ(blocks.ending(), Ending::data);
    table.appendAll(simpleMessages(4));
    ASSERT_NE(blocks.next(), nullptr);
    expectSame(*blocks.current(), expectedRecord(table, 3));
    ASSERT_NE(blocks.next(), nullptr);
    expectSame(*blocks.current(), expectedRecord(table, 6));
    EXPECT_EQ(blocks.next(), nullptr);
}

TEST_F(ApiBlocks, InFrontOfADamagedOneAreGivenBeforeTheError) {
    std::int64_t block = 0;
    {
        const StoredTable table(path(), layout, simpleMessages(8));
        block = table.place(3).block;
    }
    internal::test::patchFile(path().string(), static_cast<std::size_t>(block), internal::test::pattern(8, 77));
    Blocks blocks = Reader(path()).blocks();
    ASSERT_NE(blocks.next(), nullptr);
    for (int i = 0; i < 2; ++i) {
        const Error error = errorOf([&] { blocks.next(); });
        EXPECT_EQ(error.code(), Code::headerCorrupted);
        EXPECT_EQ(error.offset(), block);
        EXPECT_EQ(blocks.current(), nullptr);
    }
}

TEST_F(ApiBlocks, GoOnFromOneThatWasGivenBeforeAndReadItAgain) {
    StoredTable table(path(), layout, simpleMessages(10));
    Reader reader(path());
    std::vector<BlockRecord> given;
    for (const BlockRecord& block : reader.blocks()) {
        given.push_back(block);
    }
    ASSERT_GE(given.size(), 3U);
    EXPECT_FALSE(given.back().closed);
    table.appendAll(simpleMessages(4));
    for (std::size_t first = 0; first < given.size(); ++first) {
        Blocks blocks = reader.blocksFrom(given[first]);
        for (std::size_t block = first; block < table.blockCount(); ++block) {
            ASSERT_NE(blocks.next(), nullptr) << "block " << block << " from " << first << " on";
            expectSame(*blocks.current(), expectedRecord(table, block * table.perBlock()));
        }
        EXPECT_EQ(blocks.next(), nullptr);
    }
}

TEST_F(ApiBlocks, GoOnFromNoPlaceWhereNoBlockBegins) {
    StoredTable table(path(), layout, simpleMessages(10));
    Reader reader(path());
    Blocks blocks = reader.blocks();
    blocks.next();
    blocks.next();
    BlockRecord moved = *blocks.current();
    for (const std::int64_t offset :
         {std::int64_t{0}, std::int64_t{-8}, moved.offset - 1, moved.offset + 1, moved.offset + 1'000'000}) {
        moved.offset = offset;
        EXPECT_EQ(errorOf([&] { reader.blocksFrom(moved); }).code(), Code::vseek) << "at " << offset;
    }
    const BlockRecord second = *blocks.current();
    table.drop();
    EXPECT_EQ(errorOf([&] { reader.blocksFrom(second); }).code(), Code::vseek);
}

TEST_F(ApiBlocks, EndWhenTheTableIsDroppedUnderThem) {
    StoredTable table(path(), layout, simpleMessages(10));
    Blocks blocks = Reader(path()).blocks();
    blocks.next();
    blocks.next();
    table.drop();
    EXPECT_EQ(blocks.next(), nullptr);
    EXPECT_EQ(blocks.ending(), Ending::dropped);
    table.appendAll(simpleMessages(2));
    EXPECT_EQ(blocks.next(), nullptr);
    EXPECT_EQ(blocks.ending(), Ending::dropped);
}

}  // namespace
}  // namespace tabulo::test
