// Places in a table that has a side index: the same are good as without it, and the same are refused.
#include <optional>
#include <string>
#include <vector>

#include "tabulo/index.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/api/api_test.h"
#include "tests/support/fault_platform.h"

namespace tabulo::test {
namespace {

// What a query up to a place gives: the ids of its messages, or the refusal.
std::string answer(Reader& reader, const Position& place) {
    try {
        std::string ids;
        Messages messages = reader.messages(Query().before(place));
        while (const MessageView* message = messages.next()) {
            ids += std::to_string(message->uniformId()) + " ";
        }
        return ids;
    } catch (const Error& error) {
        return error.what();
    }
}

class IndexedPlaces : public TableTest {
  protected:
    // A table of closed blocks with an open one behind them, of which an index covers the first six.
    bool make() const {
        Writer writer = Writer::create(path(), layout);
        append(&writer, 1, 20);
        EXPECT_EQ(Indexer(path()).complete().messages, 18);
        append(&writer, 21, 31);
        writer.close();
        return true;
    }
    static void append(Writer* writer, std::int32_t first, std::int32_t last) {
        for (std::int32_t n = first; n <= last; ++n) {
            writer->append(SimpleMessage(n).message);
        }
    }
    void expectSame(const Position& place) {
        const std::string answered = answer(with, place);
        EXPECT_EQ(answered, answer(without, place)) << "block " << place.block << ", offset " << place.offset;
        refused += answered.find("VSEEK_ERROR") != std::string::npos ? 1 : 0;
    }

    const bool isMade = make();  // comes before the readers
    Reader with{path()};
    Reader without{path()};
    int refused = 0;
};

TEST_F(IndexedPlaces, EveryPlaceOfAMessageIsGood) {
    without.useIndex(false);
    int messages = 0;
    for (const MessageView& message : without.messages()) {
        expectSame(message.position());
        expectSame(message.next());
        ++messages;
    }
    std::int64_t ordinal = 0;
    for (const MessageView& message : with.messages()) {
        EXPECT_EQ(message.ordinal(), ordinal++);
    }
    expectSame(without.end());
    EXPECT_EQ(messages, 31);
    EXPECT_EQ(refused, 0);
}

TEST_F(IndexedPlaces, AQueryFromAPlaceLeavesTheBlocksBetweenItAndItsMessagesUnread) {
    Writer writer = Writer::open(path());
    append(&writer, 32, 400);
    writer.close();
    EXPECT_GE(Indexer(path()).complete().messages, 390);
    std::optional<Position> place;
    for (const MessageView& message : Reader(path()).messages(Query().uniformIds(100, 100))) {
        place = message.position();
    }
    ASSERT_TRUE(place.has_value());
    place->offset = place->block + 8;
    const auto reads = [&](bool useIndex) {
        Reader reader(path());
        reader.useIndex(useIndex);
        const internal::test::FaultPlatform platform;
        std::vector<std::int64_t> ids;
        for (const MessageView& message : reader.messages(Query().from(*place).seqNums(390, 391))) {
            ids.push_back(message.uniformId());
        }
        EXPECT_EQ(ids, (std::vector<std::int64_t>{390, 391}));
        return platform.count(internal::test::FileCall::readAt);
    };
    EXPECT_LT(reads(true), reads(false) / 2);
}

TEST_F(IndexedPlaces, EveryOtherPlaceIsRefusedInTheSameWords) {
    without.useIndex(false);
    constexpr std::int64_t LENGTH_WORD = 8;
    std::vector<std::int64_t> blocks;
    for (const MessageView& message : without.messages()) {
        const Position place = message.position();
        for (const std::int64_t distance : {-1, 1}) {
            expectSame({place.block + distance, place.offset});
            expectSame({place.block, place.offset + distance});
        }
        blocks.push_back(place.block);
    }
    const int asked = refused;
    const auto size = static_cast<std::int64_t>(fileBytes().size());
    for (std::int64_t block = blocks.front() - LENGTH_WORD; block < size + LENGTH_WORD; block += 97) {
        expectSame({block, block + LENGTH_WORD});
    }
    EXPECT_EQ(asked, 4 * 31);
    EXPECT_GT(refused - asked, 100);
}

}  // namespace
}  // namespace tabulo::test
