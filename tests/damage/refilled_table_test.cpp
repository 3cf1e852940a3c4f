// A table that another process drops and fills again with something else is never called damaged: by nobody who begins
// to read it then, and by nobody who is reading it, as long as it can be seen that the file or what its header tells of
// the last block's end is smaller.
#include <gtest/gtest.h>

#include "query/message_table_iterator.h"
#include "tests/damage/healthy_table.h"
#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t FIRST_REFILLED = 13;

// Messages 1 to 12 of the table as it was. Behind them those with which it is filled again: where the second block
// stood they have zero bytes.
std::vector<Message> messages() {
    std::vector<Message> made = damageMessages(30);
    for (std::size_t number = 5; number <= 8; ++number) {
        made[number - 1].strings[4] = withNul(std::string(1500, 'x'));
    }
    made[FIRST_REFILLED - 1].strings[4] = std::string(2300, '\0');
    for (std::size_t number = FIRST_REFILLED + 4; number <= made.size(); ++number) {
        made[number - 1].strings[4] = std::string(10000, '\0');
    }
    return made;
}

class RefilledTable : public HealthyTable {
  protected:
    RefilledTable() : HealthyTable(messages()) {}

    // The file's size and what its header tells of the last block's end.
    struct Measure {
        std::size_t size = 0;
        std::uint64_t blockEnd = 0;
    };
    Measure measureOf(std::int64_t first, std::int64_t last) {
        const TableMap map = mapOf(shape, {known.begin() + first - 1, known.begin() + last});
        return {unclosed(first, last).size(), map.openBlockStart};
    }
    void expectAnswers(MessageTable* table, std::int64_t first, std::int64_t last) {
        for (const Question& question : questions) {
            const Answer answer = question.ask(table);
            EXPECT_EQ(answer.code, NO_ERROR) << question.name << ": " << getErrorMessage(answer.code);
            EXPECT_EQ(answer.values, question.rightAnswer(numbersFrom(first, last))) << question.name;
        }
    }
    // The message as it was behind which the table is refilled, and what was delivered until then.
    void expectPartOf(const std::vector<Message>& delivered, std::int64_t refilledBehind, ErrorCode code) {
        EXPECT_EQ(code, NO_ERROR) << "refilled behind message " << refilledBehind << ": " << getErrorMessage(code);
        ASSERT_GE(delivered.size(), static_cast<std::size_t>(refilledBehind));
        ASSERT_LE(delivered.size(), known.size());
        EXPECT_EQ(delivered,
                  std::vector<Message>(known.begin(), known.begin() + static_cast<std::ptrdiff_t>(delivered.size())))
            << "refilled behind message " << refilledBehind;
    }
    // Refills the table behind each message of a walk and of an iterator.
    void expectDroppedUnderReaders(std::int64_t before, std::int64_t last) {
        const Bytes old = unclosed(1, before);
        const Bytes refilled = unclosed(FIRST_REFILLED, last);
        for (std::int64_t behind = 1; behind <= before; ++behind) {
            put(old);
            MessageTablePtr table = openReader();
            WalkRecord record;
            record.onMessage = [&] {
                if (static_cast<std::int64_t>(record.messages.size()) == behind) {
                    put(refilled);
                }
            };
            const ErrorCode code = walkForward(table.get(), &record);
            expectPartOf(record.messages, behind, code);
            put(old);
            table = openReader();
            expectDroppedUnderAnIterator(table.get(), refilled, behind);
        }
    }
    void expectDroppedUnderAnIterator(MessageTable* table, const Bytes& refilled, std::int64_t behind) {
        const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions_create()));
        std::vector<std::int32_t> ids;
        bool end = false;
        ErrorCode code = NO_ERROR;
        while ((code = mtIterator_next(iterator.get(), &end)) == NO_ERROR && !end && ids.size() <= known.size()) {
            ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
            if (static_cast<std::int64_t>(ids.size()) == behind) {
                put(refilled);
            }
        }
        EXPECT_EQ(code, NO_ERROR) << "an iterator, refilled behind message " << behind << ": " << getErrorMessage(code);
        EXPECT_GE(ids.size(), static_cast<std::size_t>(behind));
        const std::vector<std::int64_t> expected = numbersFrom(1, static_cast<std::int64_t>(ids.size()));
        EXPECT_EQ(ids, std::vector<std::int32_t>(expected.begin(), expected.end()))
            << "an iterator, refilled behind message " << behind;
    }
};

TEST_F(RefilledTable, IsReadAnewByWhoeverHadItOpen) {
    for (const std::int64_t before : {0, 3, 4, 7, 11, 12}) {
        const Bytes old = unclosed(1, before);
        for (const std::int64_t last : {13, 15, 16, 17, 23, 24, 30}) {
            SCOPED_TRACE("1 to " + std::to_string(before) + ", then 13 to " + std::to_string(last));
            const Bytes refilled = unclosed(FIRST_REFILLED, last);
            put(old);
            const MessageTablePtr table = openReader();
            expectAnswers(table.get(), 1, before);
            put(refilled);
            expectAnswers(table.get(), FIRST_REFILLED, last);
        }
    }
}

TEST_F(RefilledTable, ThatIsSmallerAndHasAClosedBlockEndsReadersWithoutAnError) {
    ASSERT_LT(measureOf(13, 16).size, measureOf(1, 11).size);
    ASSERT_LT(measureOf(13, 16).blockEnd, measureOf(1, 11).blockEnd);
    expectDroppedUnderReaders(11, 16);
}

TEST_F(RefilledTable, ThatIsSmallerAndHasNoClosedBlockEndsReadersWithoutAnError) {
    ASSERT_LT(measureOf(13, 13).size, measureOf(1, 11).size);
    ASSERT_LT(measureOf(13, 13).blockEnd, measureOf(1, 11).blockEnd);
    expectDroppedUnderReaders(11, 13);
}

TEST_F(RefilledTable, WhoseFileAloneIsSmallerEndsReadersWithoutAnError) {
    ASSERT_LT(measureOf(13, 16).size, measureOf(1, 7).size);
    ASSERT_GT(measureOf(13, 16).blockEnd, measureOf(1, 7).blockEnd);
    expectDroppedUnderReaders(7, 16);
}

TEST_F(RefilledTable, WhoseLastBlockAloneEndsEarlierEndsReadersWithoutAnError) {
    ASSERT_GT(measureOf(13, 17).size, measureOf(1, 11).size);
    ASSERT_LT(measureOf(13, 17).blockEnd, measureOf(1, 11).blockEnd);
    expectDroppedUnderReaders(11, 17);
}

}  // namespace
}  // namespace tabulo::internal::test
