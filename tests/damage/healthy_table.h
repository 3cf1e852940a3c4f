// Tables that are in order, and what another process does to them between two calls of a reader.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "tests/damage/damage_messages.h"
#include "tests/damage/memory_table.h"
#include "tests/damage/table_questions.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_platform.h"

namespace tabulo::internal::test {

// first, first + 1, ... last.
inline std::vector<std::int64_t> numbersFrom(std::int64_t first, std::int64_t last) {
    std::vector<std::int64_t> numbers(static_cast<std::size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

class HealthyTable : public ::testing::Test {
  protected:
    explicit HealthyTable(std::vector<Message> messages = damageMessages(30))
        : known(std::move(messages)), questions(tableQuestions(known)) {}

    // The file of a table with the messages of these numbers, as its writer leaves it without closing it.
    Bytes unclosed(std::int64_t first, std::int64_t last) {
        return writtenTable(&platform, shape, {known.begin() + first - 1, known.begin() + last}, TableEnd::unclosed);
    }
    void put(const Bytes& bytes) { platform.put(memoryPath(shape), bytes); }
    MessageTablePtr openReader() const { return openTable(MEMORY_ROOT, OpenMode::read, shape); }

    MemoryPlatform platform;
    LogCapture log;
    const TableShape shape = damageShape();
    const std::vector<Message> known;
    const std::vector<Question> questions;
};

}  // namespace tabulo::internal::test
