#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "tests/messagetable/table_image.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class RecoveryOrder : public TableImageTest {
  protected:
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    Bytes unclosed(std::int32_t last) const { return unclosedImage(shape, simpleMessages(1, last, shape)); }

    // Two full blocks without footers' lengths, damage in the open block: recovery has to do all it can do.
    Bytes everyStep() const {
        Bytes damaged = unclosed(10);
        const TableMap places = map(10);
        putU64(&damaged, places.blockStarts[0], 0);
        putU64(&damaged, places.blockStarts[1], 99);
        damaged[places.frame(8).end + 5] ^= 0xff;  // its footer is damaged too
        putU64(&damaged, places.openBlockStart, 1234);
        putU32(&damaged, places.frame(10).end - 4, 7);
        return damaged;
    }
    // What recovery does to the table's own file, one line for each write and cut.
    std::vector<std::string> changes(const FaultPlatform& platform) const {
        std::vector<std::string> found;
        int tableDescriptor = -1;
        for (const RecordedCall& call : platform.calls()) {
            if (call.call == FileCall::lock && tableDescriptor < 0) {
                tableDescriptor = call.descriptor;  // the table is opened first
            } else if (call.descriptor == tableDescriptor && call.call == FileCall::writeAt) {
                found.push_back("write " + std::to_string(call.length) + " at " + std::to_string(call.offset));
            } else if (call.descriptor == tableDescriptor && call.call == FileCall::truncate) {
                found.push_back("cut at " + std::to_string(call.offset));
            }
        }
        return found;
    }
    static std::string writeLine(std::size_t length, std::size_t offset) {
        return "write " + std::to_string(length) + " at " + std::to_string(offset);
    }
    static std::string cutLine(std::size_t size) { return "cut at " + std::to_string(size); }

    void forgetCopies() const {
        for (const auto& [name, bytes] : others()) {
            std::filesystem::remove(directory.file(name));
        }
    }
};

TEST_F(RecoveryOrder, FooterThenLengthWordThenSectionThenTheCut) {
    const TableMap places = map(8);
    const std::size_t frames = places.frame(8).end;
    place(concatenated(footerlessImage(shape, simpleMessages(1, 8, shape)), Bytes(5000, 0)));
    FaultPlatform platform;
    ASSERT_EQ(recover(), NO_ERROR);
    const std::vector<std::string> expected = {writeLine(places.footerSize, frames),
                                               writeLine(8, places.blockStarts[1]), writeLine(121, 19),
                                               cutLine(places.dataEnd)};
    EXPECT_EQ(changes(platform), expected);
}

TEST_F(RecoveryOrder, TheOpenBlocksLengthWordComesBeforeTheSection) {
    const TableMap places = map(6);
    Bytes damaged = concatenated(unclosed(6), Bytes(30, 0));
    putU64(&damaged, places.blockStarts[1], 5);
    place(damaged);
    FaultPlatform platform;
    ASSERT_EQ(recover(), NO_ERROR);
    const std::vector<std::string> expected = {writeLine(8, places.blockStarts[1]), writeLine(121, 19),
                                               cutLine(places.dataEnd)};
    EXPECT_EQ(changes(platform), expected);
}

TEST_F(RecoveryOrder, CopiesAreOnTheDiskBeforeWhatTheyHoldIsOverwrittenOrCut) {
    place(everyStep());
    FaultPlatform platform;
    ASSERT_EQ(recover(), NO_ERROR);
    int copiesOpen = 0;
    int synced = 0;
    int copies = 0;
    for (const RecordedCall& call : platform.calls()) {
        if (call.call == FileCall::open && call.access == FileAccess::createNew) {
            copiesOpen += 1;
            copies += 1;
        } else if (call.call == FileCall::sync) {
            synced += 1;
        } else if (call.call == FileCall::truncate) {
            EXPECT_EQ(copiesOpen, copies);
            EXPECT_EQ(synced, copies) << "the file is cut before its copies are on the disk";
        }
    }
    EXPECT_EQ(copies, 4) << "a footer, two length words, a tail";
}

TEST_F(RecoveryOrder, ACutSectionIsRebuiltFromTheConfigurationWithItsHeaderSize) {
    shape.stringNames = {"ClOrdID", "Symbol"};
    shape.numericNames = {"OrderQty"};
    const Bytes whole = closed(0);
    for (std::size_t size = 20; size < whole.size(); ++size) {
        SCOPED_TRACE("cut at " + std::to_string(size));
        Bytes damaged = cutAt(whole, size);
        if (size < whole.size() - 88) {
            putU32(&damaged, 15, 36);  // not looked at before the names are read
        }
        place(damaged);
        table = createTable(directory.root(), shape);
        ASSERT_EQ(mt_open(table.get(), OpenMode::write), NO_ERROR);
        EXPECT_EQ(table->storage->headerSize, static_cast<std::int32_t>(whole.size()));
        ASSERT_EQ(writeSimple(1, 1), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
        ASSERT_EQ(difference(fileBytes(), closed(1)), "");
    }
}

TEST_F(RecoveryOrder, OfAFileWithoutAnythingBehindTheGenericHeaderIsRefused) {
    for (std::size_t size = 1; size <= 19; ++size) {
        const Bytes damaged = cutAt(closed(0), size);
        place(damaged);
        EXPECT_EQ(recover(), FILE_SIZE_ERROR) << size << " bytes";
        EXPECT_EQ(difference(fileBytes(), damaged), "");
    }
}

TEST_F(RecoveryOrder, ACutSectionThatHeldOtherRecordsIsSavedBeforeItIsRebuilt) {
    const Bytes damaged = cutAt(closed(6), 100);
    place(damaged);
    ASSERT_EQ(recover(), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(0)), "");
    const std::map<std::string, Bytes> expected = {{shape.name + ".cut-19", slice(damaged, 19, 100)}};
    EXPECT_EQ(others(), expected);
    EXPECT_EQ(warningsOf("mtX_recover").size(), 1U);
}

// Makes one call of recovery fail: nothing may be written or cut behind it, and the next recovery must come to the same
// table as one that was never disturbed.
class RecoveryDisturbed : public RecoveryOrder {
  protected:
    // The number of times that the call could be made to fail.
    int disturbEvery(FileCall call, const Bytes& damaged, const Bytes& expected, std::size_t transferLimit) {
        int failures = 0;
        for (int n = 1; n < 1000; ++n) {
            SCOPED_TRACE(std::string(fileCallName(call)) + " " + std::to_string(n));
            place(damaged);
            ErrorCode code = NO_ERROR;
            bool failed = false;
            {
                FaultPlatform platform;
                platform.limitTransfer(transferLimit);
                platform.failNth(call, n, EIO);
                code = recover();
                failed = platform.count(call) >= n;
                expectNothingBehind(platform, call, n);
            }
            if (code == NO_ERROR) {
                EXPECT_EQ(difference(fileBytes(), expected), "") << "a recovery that says it succeeded";
            } else {
                failures += 1;
            }
            EXPECT_EQ(recover(), NO_ERROR) << "the next recovery";
            EXPECT_EQ(difference(fileBytes(), expected), "") << "after the next recovery";
            forgetCopies();
            if (!failed || ::testing::Test::HasFailure()) {
                return failures;
            }
        }
        return failures;
    }

    // A read that fails while the header is loaded sends the file to recovery; a write or a cut that fails ends it.
    void expectNothingBehind(const FaultPlatform& platform, FileCall call, int n) const {
        if (call != FileCall::writeAt && call != FileCall::truncate) {
            return;
        }
        int seen = 0;
        bool behind = false;
        for (const RecordedCall& recorded : platform.calls()) {
            EXPECT_FALSE(behind && (recorded.call == FileCall::writeAt || recorded.call == FileCall::truncate))
                << fileCallName(recorded.call) << " at " << recorded.offset << " behind the failed call";
            seen += recorded.call == call ? 1 : 0;
            behind = behind || seen == n;
        }
    }
};

TEST_F(RecoveryDisturbed, AtAnyWrite) {
    EXPECT_GE(disturbEvery(FileCall::writeAt, everyStep(), closed(9), 0), 10);
}

TEST_F(RecoveryDisturbed, InTheMiddleOfAnyWrite) {
    EXPECT_GE(disturbEvery(FileCall::writeAt, everyStep(), closed(9), 50), 50);
}

TEST_F(RecoveryDisturbed, AtAnyRead) {
    EXPECT_GE(disturbEvery(FileCall::readAt, everyStep(), closed(9), 0), 10);
}

TEST_F(RecoveryDisturbed, AtTheCut) {
    EXPECT_EQ(disturbEvery(FileCall::truncate, everyStep(), closed(9), 0), 1);
}

TEST_F(RecoveryDisturbed, AtAnyCommit) {
    EXPECT_EQ(disturbEvery(FileCall::sync, everyStep(), closed(9), 0), 4) << "one commit for each copy";
}

TEST_F(RecoveryDisturbed, AtAnyOpen) {
    EXPECT_EQ(disturbEvery(FileCall::open, everyStep(), closed(9), 0), 5) << "the table and four copies";
}

TEST_F(RecoveryDisturbed, AtAnyQuestionForTheSize) {
    EXPECT_GE(disturbEvery(FileCall::size, everyStep(), closed(9), 0), 1);
}

TEST_F(RecoveryDisturbed, WhileACutSectionIsRebuilt) {
    shape.stringNames = {"ClOrdID", "Symbol"};
    const Bytes damaged = cutAt(closed(0), 60);
    EXPECT_GE(disturbEvery(FileCall::writeAt, damaged, closed(0), 0), 1);
    EXPECT_GE(disturbEvery(FileCall::writeAt, damaged, closed(0), 7), 20);
    EXPECT_GE(disturbEvery(FileCall::readAt, damaged, closed(0), 0), 1);
}

TEST_F(RecoveryDisturbed, AReadErrorInTheMiddleOfRecoveryIsItsResultAndNothingIsWrittenBehindIt) {
    const Bytes damaged = everyStep();
    place(damaged);
    FaultPlatform platform;
    ASSERT_EQ(recover(), NO_ERROR);
    const std::vector<RecordedCall> undisturbed = platform.calls();
    // The reads between the first and the last write are recovery's own.
    int reads = 0;
    int writes = 0;
    for (const RecordedCall& call : undisturbed) {
        reads += call.call == FileCall::readAt ? 1 : 0;
        writes += call.call == FileCall::writeAt ? 1 : 0;
        if (call.call != FileCall::readAt || writes == 0) {
            continue;
        }
        SCOPED_TRACE("read " + std::to_string(reads));
        place(damaged);
        platform.clear();
        platform.failNth(FileCall::readAt, reads, EIO);
        EXPECT_EQ(recover(), FILE_READ_ERROR);
        EXPECT_LE(platform.count(FileCall::writeAt), writes) << "something was written behind the failed read";
    }
}

}  // namespace
}  // namespace tabulo::internal::test
