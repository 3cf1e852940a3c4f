#include "query/message_table_iterator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/query/query_fixture.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

class Iterator : public QueryTest {
  protected:
    MessageTableIteratorPtr iterate(bool backward = false) {
        return openIterator(table.get(), newConditions(backward));
    }
    // What every accessor of an iterator without a current message answers.
    void expectNothingCurrent(const MessageTableIterator* iterator) const {
        const MessageMetadata& metadata = mtIterator_getMetadata(iterator);
        EXPECT_EQ(metadata.uniformId, 0);
        EXPECT_EQ(metadata.seqNum, 0);
        EXPECT_EQ(metadata.prevSeqNum, 0);
        EXPECT_EQ(metadata.connMsgId, 0);
        EXPECT_EQ(metadata.timestamp, 0);
        EXPECT_STREQ(metadata.msgType.data(), "");
        EXPECT_EQ(metadata.isPossDupFlag, 0);
        EXPECT_EQ(metadata.isOutOfSequence, 0);
        EXPECT_EQ(mtIterator_getWireMessage(iterator).text, nullptr);
        EXPECT_EQ(mtIterator_getWireMessage(iterator).length, 0);
        EXPECT_EQ(mtIterator_getNonMetadataFields(iterator).text, nullptr);
        for (std::size_t i = 0; i < MAX_STRING_FIELDS; ++i) {
            EXPECT_EQ(mtIterator_getStringValues(iterator)[i].text, nullptr) << "slot " << i << " dangles";
            EXPECT_EQ(mtIterator_getStringValues(iterator)[i].length, 0) << i;
        }
        for (std::size_t i = 0; i < MAX_NUMERIC_FIELDS; ++i) {
            EXPECT_EQ(mtIterator_getNumericValues(iterator)[i].type, NumericType::absent) << "slot " << i << " is old";
        }
        StringField text;
        EXPECT_EQ(mtIterator_getStringField(iterator, 0, &text), NO_ERROR);
        EXPECT_STREQ(text.text, "") << "with no string value, index 0 is the MsgType";
        EXPECT_EQ(mtIterator_getStringField(iterator, 1, &text), INDEX_OUT_OF_BOUNDS_ERROR);
        for (std::int32_t i = 0; i < 7; ++i) {
            double real = 1;
            std::int64_t whole = 1;
            EXPECT_EQ(mtIterator_getNumericFieldAsDouble(iterator, i, &real), NO_ERROR) << i;
            EXPECT_EQ(real, 0) << i;
            EXPECT_EQ(mtIterator_getNumericFieldAsLong(iterator, i, &whole), NO_ERROR) << i;
            EXPECT_EQ(whole, 0) << i;
        }
        std::int64_t whole = 0;
        EXPECT_EQ(mtIterator_getNumericFieldAsLong(iterator, 7, &whole), INDEX_OUT_OF_BOUNDS_ERROR);
    }
};

TEST_F(Iterator, OverAnEmptyTableEndsAtOnce) {
    create();
    EXPECT_EQ(remainingIds(iterate().get()), std::vector<std::int32_t>{});
    EXPECT_EQ(remainingIds(iterate(true).get()), std::vector<std::int32_t>{});
}

class IteratorOverSomeMessages : public Iterator, public ::testing::WithParamInterface<std::int32_t> {};

TEST_P(IteratorOverSomeMessages, DeliversEachOnceInEitherDirection) {
    const std::int32_t count = GetParam();
    create();
    writePlain(1, count);
    EXPECT_EQ(remainingIds(iterate().get()), idsFromTo(1, count));
    EXPECT_EQ(remainingIds(iterate(true).get()), idsFromTo(count, 1));
    table = openReader();
    EXPECT_EQ(remainingIds(iterate().get()), idsFromTo(1, count));
    EXPECT_EQ(remainingIds(iterate(true).get()), idsFromTo(count, 1));
}

INSTANTIATE_TEST_SUITE_P(InBlocksOfThree, IteratorOverSomeMessages, ::testing::Values(1, 2, 3, 4, 5, 6, 7, 30, 31));

TEST_F(Iterator, CarriesTheCurrentMessageWhole) {
    layout = layoutOf(3, 1, 3);
    create();
    Message message = plain(1);
    message.metadata = {11, -12, 13, 14, -15, {}, 1, 1};
    setMsgType(&message.metadata, "ABCDE");
    message.strings = {withNul("zero"), std::nullopt, withNul(""), withNul("8=FIX"), withNul("1=2")};
    message.numbers = {numericValue_ofDouble(-2.75), NumericValue{}, numericValue_ofLong(1234567890123456789)};
    write(message);
    const MessageTableIteratorPtr iterator = iterate();
    ASSERT_EQ(nextId(iterator.get()), 11);
    const MessageMetadata& metadata = mtIterator_getMetadata(iterator.get());
    EXPECT_EQ(metadata.seqNum, -12);
    EXPECT_EQ(metadata.prevSeqNum, 13);
    EXPECT_EQ(metadata.connMsgId, 14);
    EXPECT_EQ(metadata.timestamp, -15);
    EXPECT_STREQ(metadata.msgType.data(), "ABCDE");
    EXPECT_EQ(metadata.isPossDupFlag, 1);
    EXPECT_EQ(metadata.isOutOfSequence, 1);
    EXPECT_EQ(stringField_bytes(mtIterator_getWireMessage(iterator.get())), withNul("8=FIX"));
    EXPECT_EQ(stringField_bytes(mtIterator_getNonMetadataFields(iterator.get())), withNul("1=2"));
    EXPECT_EQ(stringField_bytes(mtIterator_getStringValues(iterator.get())[0]), withNul("zero"));
    EXPECT_EQ(mtIterator_getNumericValues(iterator.get())[2].longValue, 1234567890123456789);
}

TEST_F(Iterator, StringFieldsCountByTheirSlotsAndEndWithTheMsgType) {
    layout = layoutOf(3, 1, 0);
    create();
    Message message = plain(1);
    message.strings = {withNul("zero"), std::nullopt, withNul(""), withNul("wire"), withNul("rest")};
    setMsgType(&message.metadata, "ABCDE");
    write(message);
    const MessageTableIteratorPtr iterator = iterate();
    ASSERT_EQ(nextId(iterator.get()), 1);
    StringField text;
    ASSERT_EQ(mtIterator_getStringField(iterator.get(), 0, &text), NO_ERROR);
    EXPECT_STREQ(text.text, "zero");
    ASSERT_EQ(mtIterator_getStringField(iterator.get(), 1, &text), NO_ERROR);
    EXPECT_EQ(text.text, nullptr) << "an absent text is null";
    ASSERT_EQ(mtIterator_getStringField(iterator.get(), 2, &text), NO_ERROR);
    EXPECT_EQ(text.length, 1) << "an empty text is present";
    ASSERT_EQ(mtIterator_getStringField(iterator.get(), 4, &text), NO_ERROR);
    EXPECT_STREQ(text.text, "rest");
    ASSERT_EQ(mtIterator_getStringField(iterator.get(), 5, &text), NO_ERROR);
    EXPECT_STREQ(text.text, "ABCDE");
    EXPECT_EQ(mtIterator_getStringField(iterator.get(), 6, &text), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(mtIterator_getStringField(iterator.get(), -1, &text), INDEX_OUT_OF_BOUNDS_ERROR);
}

TEST_F(Iterator, NumericFieldsAreConvertedAndEndWithTheMetadata) {
    layout = layoutOf(3, 0, 3);
    create();
    Message message = plain(1);
    message.metadata = {1, -12, 13, 14, -15, {}, 1, 0};
    message.numbers = {numericValue_ofDouble(-2.75), NumericValue{}, numericValue_ofLong(3)};
    write(message);
    const MessageTableIteratorPtr iterator = iterate();
    ASSERT_EQ(nextId(iterator.get()), 1);
    const std::vector<double> doubles = {-2.75, std::nan(""), 3, 1, -12, 13, 14, -15, 1, 0};
    const std::vector<std::int64_t> longs = {-2, 0, 3, 1, -12, 13, 14, -15, 1, 0};
    for (std::int32_t i = 0; i < 10; ++i) {
        double real = 77;
        std::int64_t whole = 77;
        ASSERT_EQ(mtIterator_getNumericFieldAsDouble(iterator.get(), i, &real), NO_ERROR) << i;
        ASSERT_EQ(mtIterator_getNumericFieldAsLong(iterator.get(), i, &whole), NO_ERROR) << i;
        EXPECT_EQ(whole, longs[static_cast<std::size_t>(i)]) << i;
        if (i == 1) {
            EXPECT_TRUE(std::isnan(real)) << "an absent number";
        } else {
            EXPECT_EQ(real, doubles[static_cast<std::size_t>(i)]) << i;
        }
    }
    for (const std::int32_t i : {10, -1, 2147483647, -2147483647}) {
        double real = 0;
        std::int64_t whole = 0;
        EXPECT_EQ(mtIterator_getNumericFieldAsDouble(iterator.get(), i, &real), INDEX_OUT_OF_BOUNDS_ERROR) << i;
        EXPECT_EQ(mtIterator_getNumericFieldAsLong(iterator.get(), i, &whole), INDEX_OUT_OF_BOUNDS_ERROR) << i;
    }
}

TEST_F(Iterator, HasNothingCurrentBeforeTheFirstMessageAndBehindTheLast) {
    layout = layoutOf(3, 2, 4);
    create();
    writePlain(1, 4);
    for (const bool backward : {false, true}) {
        const MessageTableIteratorPtr iterator = iterate(backward);
        expectNothingCurrent(iterator.get());
        ASSERT_EQ(remainingIds(iterator.get()).size(), 4U);
        expectNothingCurrent(iterator.get());
    }
}

TEST_F(Iterator, HasNothingCurrentBehindAnError) {
    layout = layoutOf(3, 2, 4);
    create();
    writePlain(1, 6);
    const MessageTableIteratorPtr iterator = iterate();
    ASSERT_EQ(nextId(iterator.get()), 1);
    ASSERT_EQ(tableStorage_uninit(table->storage.get()), NO_ERROR);
    bool end = false;
    ErrorCode code = mtIterator_next(iterator.get(), &end);
    EXPECT_EQ(code, MASTER_INACTIVE_ERROR) << getErrorMessage(code);
    EXPECT_TRUE(end);
    expectNothingCurrent(iterator.get());
}

TEST_F(Iterator, KeepsTheTextsOfTheCurrentMessageUntilTheNextCall) {
    layout = layoutOf(4, 0, 0);
    create();
    for (std::int32_t n = 1; n <= 9; ++n) {
        Message message = plain(n);
        message.strings[2] = withNul(std::string(static_cast<std::size_t>(n) * 20'000, static_cast<char>('a' + n)));
        write(message);
    }
    for (const bool backward : {false, true}) {
        const MessageTableIteratorPtr iterator = iterate(backward);
        while (const std::optional<std::int32_t> n = nextId(iterator.get())) {
            // Other work on the same table must not move what the iterator shows.
            ASSERT_EQ(remainingIds(iterate(!backward).get()).size(), 9U);
            const std::string_view text = stringField_bytes(mtIterator_getWireMessage(iterator.get()));
            EXPECT_EQ(text, withNul(std::string(static_cast<std::size_t>(*n) * 20'000, static_cast<char>('a' + *n))));
        }
    }
}

TEST_F(Iterator, StepsThroughWhatIsInMemoryAndGoesOnWhereThatEnds) {
    constexpr std::int32_t count = 10;
    create();
    writePlain(1, count);
    for (const bool backward : {false, true}) {
        const MessageTableIteratorPtr iterator = iterate(backward);
        std::vector<std::int32_t> ids;
        std::int32_t loaded = 0;
        for (bool end = true;; end = true) {
            ASSERT_EQ(mtIterator_nextLoaded(iterator.get(), &end), NO_ERROR);
            loaded += end ? 0 : 1;
            if (end) {
                ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
            }
            if (end) {
                break;
            }
            ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        }
        EXPECT_EQ(ids, backward ? idsFromTo(count, 1) : idsFromTo(1, count));
        EXPECT_EQ(loaded > 0, !backward) << loaded << " messages were in memory";
        EXPECT_LT(loaded, count) << "the first of a block has to be read";
        expectNothingCurrent(iterator.get());
    }
}

TEST_F(Iterator, SkipsAClosedBlockThatCannotMatchAndAsksAboutEachOnce) {
    create();
    writePlain(1, 11);  // three closed blocks and two messages
    for (const bool backward : {false, true}) {
        QueryConditionsPtr conditions = newConditions(backward);
        EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 5, 6), NO_ERROR);
        const MessageTableIteratorPtr iterator = openIterator(table.get(), std::move(conditions));
        const WatchedIterator watched(iterator.get(), true);
        std::vector<std::int32_t> ids = remainingIds(iterator.get());
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(ids, idsFromTo(5, 6));
        EXPECT_EQ(watched.blocksAsked, 3) << "closed blocks are asked about, the open one is not";
        EXPECT_EQ(watched.blocksSkipped, 2);
        EXPECT_EQ(watched.messagesAsked, 3 + 2);
    }
}

TEST_F(Iterator, InvertedDeliversWhatThePlainOneLeavesOutAndSkipsNoBlock) {
    create();
    writePlain(1, 11);
    for (const bool backward : {false, true}) {
        QueryConditionsPtr conditions = newConditions(backward);
        EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 5, 6), NO_ERROR);
        EXPECT_EQ(conditions_setInverted(conditions.get(), true), NO_ERROR);
        const MessageTableIteratorPtr iterator = openIterator(table.get(), std::move(conditions));
        const WatchedIterator watched(iterator.get(), true);
        std::vector<std::int32_t> ids = remainingIds(iterator.get());
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(ids, (std::vector<std::int32_t>{1, 2, 3, 4, 7, 8, 9, 10, 11}));
        EXPECT_EQ(watched.blocksSkipped, 0);
        EXPECT_EQ(watched.messagesAsked, 11);
    }
}

TEST_F(Iterator, ASingleIdRangeOverTwoClassesFindsTheOpenBlockOnlyAndNotesEachClosedOne) {
    create();
    writePlain(1, 8);
    log.clear();
    const auto wholeRange = [](QueryConditions* conditions) {
        EXPECT_EQ(conditions_setMessageIdRange(conditions, 0, 0x7FFFFFFF), NO_ERROR);
    };
    EXPECT_EQ(select(wholeRange), idsFromTo(7, 8));
    EXPECT_EQ(log.notes().size(), 2U);
    EXPECT_EQ(select(wholeRange, true), idsFromTo(8, 7));
    log.clear();
    const auto belowZero = [](QueryConditions* conditions) {
        EXPECT_EQ(conditions_setMessageIdRange(conditions, -5, -2), NO_ERROR);
    };
    Message message = plain(9);
    message.metadata.connMsgId = -3;
    write(message);  // closes the third block
    EXPECT_EQ(select(belowZero), std::vector<std::int32_t>{});
    message.metadata.uniformId = 10;
    write(message);
    EXPECT_EQ(select(belowZero), std::vector<std::int32_t>{10});
    EXPECT_TRUE(log.notes().empty());
}

TEST_F(Iterator, AnIgnoredFilterIsNotedOncePerClosedBlock) {
    create();
    writePlain(1, 8);
    log.clear();
    const double value = 1;
    const auto ids = select([&](QueryConditions* conditions) {
        EXPECT_EQ(conditions_addDoubleFilter(conditions, 7, nullptr, nullptr, 0, &value, 1, false), NO_ERROR);
    });
    EXPECT_EQ(ids, idsFromTo(1, 8));
    EXPECT_EQ(log.notes().size(), 2U);
}

TEST_F(Iterator, TwoIteratorsOverOneTableDoNotDisturbEachOtherOrTheWriter) {
    create();
    writePlain(1, 4);
    const MessageTableIteratorPtr first = iterate();
    const MessageTableIteratorPtr second = iterate(true);
    EXPECT_EQ(nextId(first.get()), 1);
    EXPECT_EQ(nextId(second.get()), 4);
    writePlain(5, 7);
    EXPECT_EQ(nextId(first.get()), 2);
    EXPECT_EQ(nextId(second.get()), 3);
    EXPECT_EQ(remainingIds(first.get()), idsFromTo(3, 7));
    EXPECT_EQ(remainingIds(second.get()), idsFromTo(2, 1));
}

TEST_F(Iterator, IsRefusedWithoutATableOrConditions) {
    create();
    EXPECT_EQ(mtIterator_open(nullptr, newConditions().release()), nullptr) << "the conditions are freed";
    EXPECT_EQ(mtIterator_open(table.get(), nullptr), nullptr);
    bool end = false;
    EXPECT_EQ(mtIterator_next(nullptr, &end), NULL_POINTER_ERROR);
    mtIterator_close(nullptr);
}

TEST_F(Iterator, BackwardIsRefusedWhenTheTableCannotBeRefreshed) {
    const MessageTablePtr closed = createTable(directory.root(), layout);
    EXPECT_EQ(mtIterator_open(closed.get(), newConditions(true).release()), nullptr);
}

TEST_F(Iterator, IsRefusedWithoutMemoryAndFreesItsConditions) {
    create();
    writePlain(1, 4);
    int failures = 0;
    for (std::int64_t n = 1;; ++n) {
        QueryConditions* conditions = newConditions(true).release();
        MessageTableIterator* iterator = nullptr;
        {
            const AllocationFailure failure(n);
            iterator = mtIterator_open(table.get(), conditions);
        }
        if (iterator != nullptr) {
            mtIterator_close(iterator);
            break;
        }
        failures += 1;
        ASSERT_LT(n, 1000) << "an iterator that can never be opened";
    }
    EXPECT_GE(failures, 2) << "at least the iterator and its reader are allocated";
}

TEST_F(Iterator, GoesOnAfterACallThatRanOutOfMemory) {
    layout = layoutOf(3, 0, 0);
    create();
    writePlain(1, 7);
    for (const bool backward : {false, true}) {
        for (std::int64_t n = 1; n <= 12; ++n) {
            const MessageTableIteratorPtr iterator = iterate(backward);
            bool end = false;
            ErrorCode code = NO_ERROR;
            {
                const AllocationFailure failure(n);
                code = mtIterator_next(iterator.get(), &end);
            }
            std::vector<std::int32_t> ids;
            if (code == NO_ERROR) {
                ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
            } else {
                EXPECT_EQ(code, OUT_OF_MEMORY_ERROR) << getErrorMessage(code);
                expectNothingCurrent(iterator.get());
            }
            const std::vector<std::int32_t> rest = remainingIds(iterator.get());
            ids.insert(ids.end(), rest.begin(), rest.end());
            EXPECT_EQ(ids, backward ? idsFromTo(7, 1) : idsFromTo(1, 7)) << "failed allocation " << n;
        }
    }
}

}  // namespace
}  // namespace tabulo::internal::test
