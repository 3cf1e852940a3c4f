// The two flags of a message whose bytes in the file are neither 0 nor 1: they count as 1.
#include <gtest/gtest.h>

#include "tests/query/query_fixture.h"

namespace tabulo::internal::test {
namespace {

constexpr std::size_t POSS_DUP = 33;  // offsets in a frame
constexpr std::size_t OUT_OF_SEQUENCE = 34;
constexpr std::int32_t POSS_DUP_FIELD = 5;  // behind the configured numeric fields
constexpr std::int32_t OUT_OF_SEQUENCE_FIELD = 6;

class FlagByte : public QueryTest {
  protected:
    using Set = std::function<void(QueryConditions*)>;

    // Four messages with these bytes for a flag, of which three fill a block, and a reader.
    void make(std::size_t offset, const Bytes& bytes) {
        create();
        for (std::int32_t n = 1; n <= 4; ++n) {
            const std::size_t frame = readFile(path()).size() + (n % layout.messagesPerBlock == 1 ? 8 : 0);
            writePlain(n, n);
            patchFile(path(), frame + offset, std::span(bytes).subspan(static_cast<std::size_t>(n - 1), 1));
        }
        table.reset();
        table = openReader();
    }
    static Set longFilter(std::int32_t field, std::int64_t value) {
        return [=](QueryConditions* conditions) {
            EXPECT_EQ(conditions_addLongFilter(conditions, field, nullptr, nullptr, 0, &value, 1, false), NO_ERROR);
        };
    }
    static Set doubleFilter(std::int32_t field, double value) {
        return [=](QueryConditions* conditions) {
            EXPECT_EQ(conditions_addDoubleFilter(conditions, field, nullptr, nullptr, 0, &value, 1, false), NO_ERROR);
        };
    }
    static Set possDup(bool flag) {
        return [=](QueryConditions* conditions) { EXPECT_EQ(conditions_setPossDupFlag(conditions, flag), NO_ERROR); };
    }
    // What a numeric getter says of each message, as a long and as a double.
    void expectGot(std::int32_t field, const std::vector<std::int64_t>& expected) {
        const MessageTableIteratorPtr iterator = openIterator(table.get(), newConditions());
        std::vector<std::int64_t> longs;
        while (nextId(iterator.get())) {
            std::int64_t asLong = -1;
            double asDouble = -1;
            EXPECT_EQ(mtIterator_getNumericFieldAsLong(iterator.get(), field, &asLong), NO_ERROR);
            EXPECT_EQ(mtIterator_getNumericFieldAsDouble(iterator.get(), field, &asDouble), NO_ERROR);
            EXPECT_EQ(asDouble, static_cast<double>(asLong));
            longs.push_back(asLong);
        }
        EXPECT_EQ(longs, expected);
    }
    void expectCountedAsOne(std::int32_t field) {
        const std::vector<std::int32_t> set{2, 3, 4};
        const std::vector<std::int32_t> clear{1};
        EXPECT_EQ(select(longFilter(field, 1)), set);
        EXPECT_EQ(select(longFilter(field, 0)), clear);
        EXPECT_EQ(select(doubleFilter(field, 1.0)), set);
        EXPECT_EQ(select(doubleFilter(field, 0.0)), clear);
        for (const std::int64_t stored : {2, 128, 255}) {
            EXPECT_EQ(select(longFilter(field, stored)), std::vector<std::int32_t>{}) << stored;
            EXPECT_EQ(select(doubleFilter(field, static_cast<double>(stored))), std::vector<std::int32_t>{}) << stored;
        }
        expectGot(field, {0, 1, 1, 1});
    }
};

TEST_F(FlagByte, OfAPossibleDuplicateCountsAsOneInNumericFiltersAndGetters) {
    make(POSS_DUP, Bytes{0, 1, 2, 255});
    expectCountedAsOne(POSS_DUP_FIELD);
    make(POSS_DUP, Bytes{0, 128, 127, 1});
    expectCountedAsOne(POSS_DUP_FIELD);
    EXPECT_EQ(select(possDup(true)), (std::vector<std::int32_t>{2, 3, 4}));
    EXPECT_EQ(select(possDup(false)), std::vector<std::int32_t>{1});
}

TEST_F(FlagByte, OfAMessageOutOfSequenceCountsAsOneInNumericFiltersAndGetters) {
    make(OUT_OF_SEQUENCE, Bytes{0, 1, 2, 255});
    expectCountedAsOne(OUT_OF_SEQUENCE_FIELD);
    make(OUT_OF_SEQUENCE, Bytes{0, 128, 127, 1});
    expectCountedAsOne(OUT_OF_SEQUENCE_FIELD);
}

}  // namespace
}  // namespace tabulo::internal::test
