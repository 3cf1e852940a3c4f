// A reader in one process beside a writer in another.
#include <gtest/gtest.h>

#include <cstring>

#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

constexpr int ROUNDS = 200;
constexpr std::size_t RECORD = 100;  // 200 rounds cross the stream's buffer several times

Bytes recordOf(int round) {
    return pattern(RECORD, static_cast<std::uint8_t>(round));
}

class TableFileProcesses : public ::testing::Test {
  protected:
    // Runs a round of the writer each time the reader waits; the reader's result is the number of the first wrong
    // round.
    void run(const std::function<bool(int)>& write, const std::function<bool(TableFile*, int)>& check) {
        writer = openTableFile(path, OpenMode::create);
        ASSERT_EQ(writeBytes(writer, Bytes(8, 0)), NO_ERROR);
        ASSERT_EQ(tableFileFlush(writer.get()), NO_ERROR);
        ChildProcess reader([&] {
            TableFile* file = nullptr;
            if (tableFileOpen(&file, path.c_str(), OpenMode::read, nullptr) != NO_ERROR) {
                return 254;
            }
            for (int round = 1; round <= ROUNDS; ++round) {
                if (!written.await() || !check(file, round)) {
                    return round;
                }
                readBack.raise();
            }
            return tableFileClose(file) == NO_ERROR ? 0 : 253;
        });
        for (int round = 1; round <= ROUNDS && write(round); ++round) {
            written.raise();
            if (!readBack.await()) {
                break;
            }
        }
        EXPECT_EQ(reader.wait(), 0) << "the reader did not see what was flushed in this round";
    }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    const ProcessSignal written;
    const ProcessSignal readBack;
    TableFilePtr writer;
};

TEST_F(TableFileProcesses, AReaderSeesEveryFlushedAppendWithoutASeek) {
    const auto append = [this](int round) {
        return writeBytes(writer, recordOf(round)) == NO_ERROR && tableFileFlush(writer.get()) == NO_ERROR;
    };
    const auto check = [](TableFile* file, int round) {
        Bytes bytes(RECORD);
        if (round == 1 && tableFileSeekSet(file, 8) != NO_ERROR) {
            return false;
        }
        std::int64_t more = -1;
        char byte = 0;
        return tableFileReadExact(file, bytes.data(), static_cast<std::int64_t>(RECORD)) == NO_ERROR &&
               bytes == recordOf(round) && tableFileRead(file, &byte, 1, &more) == NO_ERROR && more == 0;
    };
    run(append, check);
}

TEST_F(TableFileProcesses, AReaderThatFollowsTheEndSeesEveryValueRewrittenInPlace) {
    const auto rewrite = [this](int round) {
        const std::int64_t value = round;
        return tableFileSeekSet(writer.get(), 0) == NO_ERROR && tableFileWrite(writer.get(), &value, 8) == NO_ERROR &&
               tableFileFlush(writer.get()) == NO_ERROR;
    };
    const auto check = [](TableFile* file, int round) {
        std::int64_t value = 0;
        return tableFileFollowEnd(file) == NO_ERROR && tableFileSeekSet(file, 0) == NO_ERROR &&
               tableFileReadExact(file, &value, 8) == NO_ERROR && value == round;
    };
    run(rewrite, check);
}

}  // namespace
}  // namespace tabulo::internal::test
