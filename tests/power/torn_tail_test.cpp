// The header's tail torn at every byte: the numbers of one save beside those of another.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "messagetable/message_lookup.h"
#include "tests/messagetable/table_image.h"
#include "tests/power/volatile_disk.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {

namespace {

constexpr const char* ROOT = "/disk/";
constexpr std::size_t TAIL_SIZE = 88;

struct TornTails {
    std::int64_t tears = 0;
    std::int64_t recovered = 0;
    std::int64_t wrongCounts = 0;
    std::int64_t contradicted = 0;  // of them, those that the open block's messages contradict
};

class TornHeaderTail : public ::testing::Test {
  protected:
    TornHeaderTail() { shape_.messagesPerBlock = 4; }

    // Opens a file that holds these messages, both ways, and expects all of them.
    void check(const Bytes& file, const std::vector<Message>& messages, TornTails* found);

    LogCapture log_;
    TableShape shape_;
};

void TornHeaderTail::check(const Bytes& file, const std::vector<Message>& messages, TornTails* found) {
    VolatileDisk disk;
    const std::string path = ROOT + shape_.name;
    disk.put(path, file);
    const std::int32_t lastId = messages.empty() ? 0 : messages.back().metadata.uniformId;
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        MessageTablePtr table = openTable(ROOT, mode, shape_);
        ASSERT_NE(table, nullptr);
        const ReadMessages read = readAll(table.get());
        ASSERT_EQ(read.code, NO_ERROR) << getErrorMessage(read.code);
        ASSERT_EQ(read.messages, messages);
        std::int32_t last = 0;
        ASSERT_EQ(mt_getLastUniformMessageId(table.get(), &last), NO_ERROR);
        ASSERT_EQ(last, lastId);
        if (mode == OpenMode::write) {
            const auto stored = static_cast<std::size_t>(table->records.dataInfo.messageCount);
            found->recovered += disk.content(path) != file ? 1 : 0;
            found->wrongCounts += stored != messages.size() ? 1 : 0;
            found->contradicted += stored != messages.size() && stored % 4 != messages.size() % 4 ? 1 : 0;
        }
        disk.stopNow();
        table.reset();
        disk.restart();
    }
    found->tears += 1;
}

// The tail is saved by a close and whenever a block is closed. Whatever the disk leaves of two saves, no message is
// lost or made up, and no lookup answers from it; messageCount alone may be wrong, and nothing answers from that.
TEST_F(TornHeaderTail, NoTearBetweenTwoSavesLosesOrMakesUpAMessage) {
    TornTails found;
    for (const int before : {0, 3, 4, 8}) {
        for (int after = before; after <= 13; after += before % 3 + 2) {
            const Bytes old = closedImage(shape_, simpleMessages(1, before, shape_));
            const std::vector<Message> messages = simpleMessages(1, after, shape_);
            const Bytes file = closedImage(shape_, messages);
            const std::size_t tail = mapOf(shape_, messages).tail();
            for (std::size_t at = 0; at <= TAIL_SIZE; ++at) {
                const auto split = static_cast<std::ptrdiff_t>(tail + at);
                Bytes oldEnd = file;
                std::copy(old.begin() + split, old.begin() + static_cast<std::ptrdiff_t>(tail + TAIL_SIZE),
                          oldEnd.begin() + split);
                Bytes oldBeginning = file;
                std::copy(old.begin(), old.begin() + split, oldBeginning.begin());
                for (const Bytes& torn : {oldEnd, oldBeginning}) {
                    check(torn, messages, &found);
                    ASSERT_FALSE(HasFatalFailure())
                        << "saved with " << before << ", then with " << after << " messages, torn at byte " << at;
                }
            }
            log_.clear();
        }
    }
    reportFigure("power loss", "torn header tails", found.tears);
    reportFigure("power loss", "torn header tails that are recovered", found.recovered);
    reportFigure("power loss", "torn header tails that are believed with a wrong message count", found.wrongCounts);
    reportFigure("power loss", "torn header tails that the open block contradicts", found.contradicted);
}

}  // namespace

}  // namespace tabulo::internal::test
