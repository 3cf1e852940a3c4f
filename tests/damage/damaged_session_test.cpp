// A session info table damaged everywhere: every single bit turned over, random bytes overwritten, cut at every byte.
// What is read afterwards is an error or what was written; a changed value itself has nothing that would tell.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/damage/damage_guard.h"
#include "tests/damage/table_damage.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/memory_platform.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr const char* PATH = "memory/session";
constexpr int OVERWRITES = 3000;

const Tags tags{2, 1, 7, 40000, -5, 6};
const Values written{11, -22, 3300000000000, 0, 55, -1};

struct SessionAnswer {
    ErrorCode opened = NO_ERROR;
    ErrorCode code = NO_ERROR;
    Values values;
};

class DamagedSession : public ::testing::Test {
  protected:
    std::size_t headerSize() const { return headerSizeFor(tags.size()); }

    // Opens what stands in the file and reads all tags.
    static SessionAnswer ask(OpenMode mode, SessionInfoTablePtr* table) {
        SessionAnswer answer;
        *table = createSessionTable(MEMORY_ROOT, tags);
        answer.opened = si_init(table->get(), mode);
        answer.code = answer.opened;
        if (answer.opened == NO_ERROR) {
            answer.values.resize(tags.size());
            answer.code =
                si_read(table->get(), static_cast<std::int32_t>(tags.size()), tags.data(), answer.values.data());
        }
        return answer;
    }
    // The damaged values are those from the first on whose bytes the damage has reached.
    bool isRight(const SessionAnswer& answer, std::size_t start, std::size_t end) const {
        if (answer.code != NO_ERROR) {
            return answer.code != OUT_OF_MEMORY_ERROR;
        }
        for (std::size_t i = 0; i < tags.size(); ++i) {
            const std::size_t place = headerSize() + 8 * i;
            const bool hit = place < end && place + 8 > start;
            if (!hit && answer.values[i] != written[i]) {
                return false;
            }
        }
        return true;
    }
    // One damage, of the bytes from `start` to `end`.
    void lookAt(const Bytes& damaged, std::size_t start, std::size_t end, const std::string& name) {
        SCOPED_TRACE(name);
        guard.begin(name);
        platform.put(PATH, damaged);
        SessionInfoTablePtr table;
        const SessionAnswer read = ask(OpenMode::read, &table);
        table.reset();
        EXPECT_EQ(difference(platform.bytes(PATH), damaged), "") << "opened read-only";
        const SessionAnswer write = ask(OpenMode::write, &table);
        if (write.opened != NO_ERROR) {
            EXPECT_EQ(difference(platform.bytes(PATH), damaged), "") << "refused for writing";
        } else {
            writeOn(table.get());
        }
        table.reset();
        const bool right = isRight(read, start, end) && isRight(write, start, end);
        EXPECT_TRUE(right) << "read-only " << read.code << " and " << ::testing::PrintToString(read.values)
                           << ", for writing " << write.code << " and " << ::testing::PrintToString(write.values);
        wrongElsewhere += right ? 0 : 1;
        inValues += end > headerSize() ? 1 : 0;
        EXPECT_EQ(platform.openCount(), 0U);
        EXPECT_EQ(platform.refusedSizes(), 0);
        EXPECT_EQ(guard.memory(), "");
        log.clear();
    }
    // A table that has opened for writing takes new values, which a reader sees.
    static void writeOn(SessionInfoTable* table) {
        const Values fresh{101, 102, 103, 104, 105, 106};
        EXPECT_EQ(writeValues(table, tags, fresh), NO_ERROR);
        const SessionInfoTablePtr reader = openSessionTable(MEMORY_ROOT, OpenMode::read, tags);
        EXPECT_EQ(readValues(reader.get(), tags), fresh);
    }

    MemoryPlatform platform;
    LogCapture log;
    DamageGuard guard;
    const Bytes whole = sessionFile(tags, written);
    int inValues = 0;
    int wrongElsewhere = 0;
};

TEST_F(DamagedSession, EverySingleBitTurnedOver) {
    std::size_t bit = 0;
    for (; bit < 8 * whole.size() && !tooManyFailures(); ++bit) {
        Bytes damaged = whole;
        damaged[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
        lookAt(damaged, bit / 8, bit / 8 + 1, "bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8));
    }
    reportFigure("flips", "single bits of a session info table", static_cast<std::int64_t>(bit));
    reportFigure("flips", "single bits of a session info table in its values", inValues);
    reportFigure("flips", "single bits of a session info table answered wrongly elsewhere", wrongElsewhere);
}

TEST_F(DamagedSession, RandomBytesOverwritten) {
    std::mt19937 random(testSeed());
    const int count = OVERWRITES * testEffort();
    int done = 0;
    for (; done < count && !tooManyFailures(); ++done) {
        Bytes damaged = whole;
        const std::size_t length = 1 + random() % 64;
        const std::size_t start = random() % (whole.size() - length + 1);
        const std::size_t kind = random() % 3;
        for (std::size_t i = start; i < start + length; ++i) {
            damaged[i] = static_cast<std::uint8_t>(kind == 0 ? random() : 255 * (kind - 1));
        }
        lookAt(damaged, start, start + length,
               "overwrite " + std::to_string(done + 1) + ", of " + std::to_string(length) + " bytes at " +
                   std::to_string(start));
    }
    reportFigure("flips", "random overwrites of a session info table", done);
    reportFigure("flips", "random overwrites of a session info table that reach its values", inValues);
    reportFigure("flips", "random overwrites of a session info table answered wrongly elsewhere", wrongElsewhere);
}

class CutSession : public DamagedSession {
  protected:
    // What a file of so many bytes is opened as, for writing and read-only.
    ErrorCode expectedCode(std::size_t size, bool writing) const {
        if (size == 0) {
            return writing ? NO_ERROR : FILE_SIZE_ERROR;
        }
        if (size < headerSize()) {
            return size < GENERIC_HEADER_SIZE ? FILE_SIZE_ERROR : STREAM_NOT_ENOUGH_DATA_ERROR;
        }
        return writing || size == headerSize() || size == whole.size() ? NO_ERROR : FILE_READ_ERROR;
    }
    Values wholeValues(std::size_t size) const {
        Values values(tags.size(), 0);
        const std::size_t kept = size < headerSize() ? 0 : (size - headerSize()) / 8;
        std::copy_n(written.begin(), kept, values.begin());
        return values;
    }
    void lookAtCut(std::size_t size) {
        const Bytes cut = cutTo(whole, size);
        platform.put(PATH, cut);
        SessionInfoTablePtr table;
        const SessionAnswer read = ask(OpenMode::read, &table);
        EXPECT_EQ(read.code, expectedCode(size, false)) << "read-only";
        if (read.code == NO_ERROR) {
            EXPECT_EQ(read.values, wholeValues(size));
        }
        EXPECT_EQ(difference(platform.bytes(PATH), cut), "") << "read-only";
        const SessionAnswer write = ask(OpenMode::write, &table);
        EXPECT_EQ(write.code, expectedCode(size, true)) << "for writing";
        if (write.code != NO_ERROR) {
            EXPECT_EQ(difference(platform.bytes(PATH), cut), "") << "a table that cannot be recovered";
            return;
        }
        EXPECT_EQ(write.values, wholeValues(size));
        // An empty file gets its header; the first opening that finds a table without values writes zeros.
        const Bytes recovered = sessionFile(tags, size == 0 ? Values{} : wholeValues(size));
        EXPECT_EQ(difference(platform.bytes(PATH), recovered), "");
        EXPECT_EQ(ask(OpenMode::write, &table).values, wholeValues(size)) << "opened once more";
        EXPECT_EQ(difference(platform.bytes(PATH), sessionFile(tags, wholeValues(size))), "") << "opened once more";
        writeOn(table.get());
    }
};

TEST_F(CutSession, AtEveryByteKeepsWholeValuesOrIsRefusedAndLeftAlone) {
    for (std::size_t size = 0; size <= whole.size() && !tooManyFailures(); ++size) {
        SCOPED_TRACE("cut to " + std::to_string(size) + " bytes");
        lookAtCut(size);
        EXPECT_EQ(platform.paths(), std::vector<std::string>{PATH}) << "a session info table is never saved beside it";
    }
    reportFigure("cuts", "cuts of a session info table", static_cast<std::int64_t>(whole.size()) + 1);
}

}  // namespace
}  // namespace tabulo::internal::test
