// The summary of one block, made from messages without a file.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "messagetable/block_summary.h"
#include "messagetable/range_compare.h"
#include "query/match.h"
#include "tests/query/query_fixture.h"

namespace tabulo::internal::test {

// One configured string field and two numeric ones, unless a test changes the layout and calls reset().
class BlockOfMessages : public ::testing::Test {
  protected:
    void SetUp() override { reset(); }

    void reset() {
        summary = BlockSummary{};
        ASSERT_EQ(blockSummary_init(&summary, layout), NO_ERROR);
    }
    void add(const Message& message) { blockSummary_add(&summary, layout, MessageFields(message).view(), 100); }
    Message plain(std::int32_t n) const { return plainMessage(n, layout); }
    void addPlain(std::int32_t first, std::int32_t last) {
        for (std::int32_t n = first; n <= last; ++n) {
            add(plain(n));
        }
    }
    void addIds(const std::vector<std::int32_t>& ids) {
        for (const std::int32_t id : ids) {
            Message message = plain(1);
            message.metadata.connMsgId = id;
            add(message);
        }
    }
    // Messages with this in numeric field 0.
    void addNumber(const NumericValue& number) {
        Message message = plain(1);
        message.numbers[0] = number;
        add(message);
    }
    void addNumbers(const std::vector<double>& numbers) {
        for (const double number : numbers) {
            addNumber(numericValue_ofDouble(number));
        }
    }
    void addText(std::int32_t field, const std::optional<std::string>& text) {
        Message message = plain(1);
        message.strings[static_cast<std::size_t>(field)] = text;
        add(message);
    }
    std::int32_t compareDouble(double low, double high, std::int32_t field) const {
        return mfr_compareNumericIndexDouble(summary, layout, low, high, field);
    }
    std::int32_t compareLong(std::int64_t low, std::int64_t high, std::int32_t field) const {
        return mfr_compareNumericIndexLong(summary, layout, low, high, field);
    }

    LogCapture log;
    MessageTableLayout layout = layoutOf(1000, 1, 2);
    BlockSummary summary;
};

}  // namespace tabulo::internal::test
