// Footers that recovery rebuilds are those of a normal close, byte for byte.
#include <gtest/gtest.h>

#include <limits>

#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {
namespace {

// Messages of every kind that a footer tells apart.
std::vector<Message> variedMessages(const TableShape& shape, std::int32_t count) {
    const std::vector<std::int32_t> classes = {0,          536870910,  536870911,  1073741822, 1073741823, 1342177278,
                                               1342177279, 1610612734, 1610612735, 2147483647, -1,         77};
    std::vector<Message> messages;
    for (std::int32_t n = 1; n <= count; ++n) {
        Message message = simpleMessage(n, shape);
        const auto kind = static_cast<std::size_t>(n) * 7 % classes.size();
        message.metadata.connMsgId = classes[kind];
        message.metadata.seqNum = n % 3 == 0 ? -n : 3 * n;
        message.metadata.prevSeqNum = n % 5 == 0 ? -n : 0;
        message.metadata.timestamp = n % 2 == 0 ? -1'000'000'007LL * n : 1'000'000'007LL * n;
        message.metadata.isPossDupFlag = n % 4 == 0 ? 1 : 0;
        message.metadata.isOutOfSequence = n % 6 == 0 ? 1 : 0;
        for (std::size_t i = 0; i < message.strings.size(); ++i) {
            switch ((static_cast<std::size_t>(n) + i) % 4) {
                case 0:
                    message.strings[i].reset();
                    break;
                case 1:
                    message.strings[i] = withNul("");
                    break;
                case 2:
                    message.strings[i] = "no NUL " + std::to_string(n);
                    break;
                default:
                    break;
            }
        }
        for (std::size_t i = 0; i < message.numbers.size(); ++i) {
            switch ((static_cast<std::size_t>(n) / 2 + i) % 5) {
                case 0:
                    message.numbers[i] = NumericValue{};
                    break;
                case 1:
                    message.numbers[i] = i < 4 ? numericValue_ofDouble(0.25 * n) : numericValue_ofLong(-n);
                    break;
                case 2:
                    message.numbers[i] = i == 9 ? numericValue_ofDouble(std::numeric_limits<double>::quiet_NaN())
                                                : numericValue_ofLong(std::int64_t{n} << 40);
                    break;
                default:
                    break;
            }
        }
        messages.push_back(message);
    }
    return messages;
}

class RecoveredFooter : public TableImageTest {
  protected:
    // Takes the footers and length words of all blocks away, one block after the other, and has them rebuilt.
    void expectIdenticalFooters(std::int32_t count) {
        const std::vector<Message> messages = variedMessages(shape, count);
        const Bytes normal = closedImage(shape, messages);
        const TableMap places = mapOf(shape, messages);
        ASSERT_EQ(places.dataEnd, normal.size());
        Bytes wordless = normal;
        for (const std::size_t start : places.blockStarts) {
            putU64(&wordless, start, 0);
        }
        putU64(&wordless, places.storedDataEnd(), 0);
        place(wordless);
        ASSERT_EQ(recover(), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), normal), "") << "length words only";
        EXPECT_TRUE(others().empty()) << "a rebuilt footer differs from the one that was there";
        place(cutAt(wordless, places.frames.back().end));
        ASSERT_EQ(recover(), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), normal), "") << "without the last footer";
        EXPECT_TRUE(others().empty());
    }
};

TEST_F(RecoveredFooter, IsThatOfANormalCloseInADefaultTable) {
    shape = defaultShape();
    expectIdenticalFooters(2000);
}

TEST_F(RecoveredFooter, IsThatOfANormalCloseInATableWithAllFields) {
    shape = widestShape(20);
    expectIdenticalFooters(60);
}

TEST_F(RecoveredFooter, IsThatOfANormalCloseWithoutFilters) {
    shape.summarisedStringFieldCount = 0;
    expectIdenticalFooters(16);
}

}  // namespace
}  // namespace tabulo::internal::test
