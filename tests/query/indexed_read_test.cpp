// Reading by connection message ids, and finding a uniform id, in a table with a side index.
#include <gtest/gtest.h>

#include "index/uniform_lookup.h"
#include "query/message_read.h"
#include "tests/query/indexed_query_fixture.h"

namespace tabulo::internal::test {
namespace {

class IndexedRead : public IndexedQuery {
  protected:
    static std::vector<std::int32_t> read(MessageTable* reader, const std::vector<std::int32_t>& ids, bool backward) {
        std::vector<std::int32_t> found;
        const MessageListener listener{
            &found,
            [](void* owner, const MessageView& message, Visit*) {
                static_cast<std::vector<std::int32_t>*>(owner)->push_back(message.metadata.uniformId);
                return NO_ERROR;
            },
            [](void*, ErrorCode code) { return code; }};
        EXPECT_EQ(mt_readMessages(reader, ids.data(), static_cast<std::int32_t>(ids.size()), &listener, backward),
                  NO_ERROR);
        return found;
    }
    // Writes a message with each of these uniform ids.
    void writeIds(const std::vector<std::int32_t>& ids) {
        for (const std::int32_t id : ids) {
            Message message = plain(id);
            message.metadata.uniformId = id;
            write(message);
        }
    }
    // The lookups of the uniform ids first to last lead where they lead without the index.
    void expectPlacesAsWithoutTheIndex(std::int32_t first, std::int32_t last) {
        const MessageTablePtr with = openReader();
        const MessageTablePtr without = openReader();
        mt_useSideIndex(without.get(), false);
        for (std::int32_t id = first; id <= last; ++id) {
            UniformPlace found;
            UniformPlace expected;
            ASSERT_EQ(mt_findUniformId(with.get(), id, &found), NO_ERROR);
            ASSERT_EQ(mt_findUniformId(without.get(), id, &expected), NO_ERROR);
            const std::string wrong = "the index leads the lookup of " + std::to_string(id) + " elsewhere";
            EXPECT_EQ(found.ordinal, expected.ordinal) << wrong;
            EXPECT_EQ(found.offset, expected.offset) << wrong;
            EXPECT_EQ(found.skip, expected.skip) << wrong;
            EXPECT_EQ(found.frame.frame, expected.frame.frame) << wrong;
            EXPECT_EQ(found.frame.block, expected.frame.block) << wrong;
        }
    }
};

TEST_F(IndexedRead, OfMessageIdsGivesThemInTheOrderOfTheTableFromEveryPartOfIt) {
    fill(200);
    writePlain(201, 247);
    const MessageTablePtr reader = openReader();
    const std::vector<std::int32_t> ids{3, 10, 11, 150, 200, 201, 230, 247, 999};
    std::vector<std::int32_t> expected(ids.begin(), ids.end() - 1);
    EXPECT_EQ(read(reader.get(), ids, false), expected);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(read(reader.get(), ids, true), expected);
}

TEST_F(IndexedRead, OfAMessageIdCostsAsMuchInALargerTable) {
    const auto calls = [this](std::int32_t messages) {
        fill(messages);
        const MessageTablePtr reader = openReader();
        EXPECT_EQ(read(reader.get(), {5}, false), std::vector<std::int32_t>{5});
        FaultPlatform platform;
        EXPECT_EQ(read(reader.get(), {messages / 2}, false), std::vector<std::int32_t>{messages / 2});
        return static_cast<int>(platform.calls().size());
    };
    const int small = calls(1000);
    const int large = calls(20'000);
    EXPECT_LE(large, small + 1);
    EXPECT_LE(large, 11);
}

TEST_F(IndexedRead, AUniformIdIsFoundAtTheSameCostInALargerTable) {
    const auto calls = [this](std::int32_t messages) {
        fill(messages);
        const MessageTablePtr reader = openReader();
        UniformPlace place;
        EXPECT_EQ(mt_findUniformId(reader.get(), 5, &place), NO_ERROR);
        FaultPlatform platform;
        EXPECT_EQ(mt_findUniformId(reader.get(), messages / 2, &place), NO_ERROR);
        EXPECT_EQ(place.ordinal, messages / 2 - 1);
        return static_cast<int>(platform.calls().size());
    };
    const int small = calls(1000);
    const int large = calls(20'000);
    EXPECT_LE(large, small + 2);
    EXPECT_LE(large, 9);
}

// The first in the order of the file, whatever the order of the ids.
TEST_F(IndexedRead, AUniformIdIsFoundAsWithoutTheIndexWhereTheIdsDoNotAscend) {
    create();
    for (const std::int32_t id : {5, 3, 9, 9, 1, 2, 7, 7, 30, 4, 4, 6, 20, 8, 40, 41, 39, 38, 50, 12, 13, 60, 11}) {
        writeIds({id, id + 1, id + 2, id, id + 1, id + 2, id});
    }
    build();
    expectPlacesAsWithoutTheIndex(-1, 64);
}

// The ids ascend within each block.
TEST_F(IndexedRead, AUniformIdIsFoundAsWithoutTheIndexWhereTheLowestAboveItStandsInALaterBlockThanTheFirst) {
    create();
    writeIds({10, 40, 41, 42, 43, 44, 45, 46, 47, 48});
    writeIds({1, 2, 3, 4, 5, 13, 60, 61, 62, 63});
    build();
    expectPlacesAsWithoutTheIndex(0, 64);
}

}  // namespace
}  // namespace tabulo::internal::test
