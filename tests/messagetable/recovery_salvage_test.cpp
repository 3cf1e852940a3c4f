#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "tests/messagetable/table_image.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

Bytes withU32(Bytes bytes, std::size_t offset, std::uint32_t value) {
    putU32(&bytes, offset, value);
    return bytes;
}

Bytes withU64(Bytes bytes, std::size_t offset, std::uint64_t value) {
    putU64(&bytes, offset, value);
    return bytes;
}

class RecoverySalvage : public TableImageTest {
  protected:
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    Bytes unclosed(std::int32_t last) const { return unclosedImage(shape, simpleMessages(1, last, shape)); }

    // Recovers the bytes and expects the table of messages 1 to `last`.
    void recoverTo(const Bytes& damaged, std::int32_t last) {
        for (const auto& [name, bytes] : others()) {
            std::filesystem::remove(directory.file(name));
        }
        log.clear();
        place(damaged);
        ASSERT_EQ(recover(), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), closed(last)), "");
    }
    // The bytes are cut without a word.
    void expectSilence(const Bytes& damaged, std::int32_t last) {
        recoverTo(damaged, last);
        EXPECT_TRUE(others().empty()) << "saved without need: " << others().begin()->first;
        EXPECT_EQ(warningsOf("mtX_recover"), std::vector<std::string>{});
    }
    // Exactly these copies are made, each with a WARNING that names it and counts its bytes.
    void expectSaved(const Bytes& damaged, std::int32_t last, const std::map<std::size_t, Bytes>& copies) {
        recoverTo(damaged, last);
        std::map<std::string, Bytes> expected;
        std::size_t warned = 0;
        const std::vector<std::string> warnings = warningsOf("mtX_recover");
        for (const auto& [offset, bytes] : copies) {
            const std::string name = shape.name + ".cut-" + std::to_string(offset);
            const std::string size = " " + std::to_string(bytes.size()) + " bytes";
            expected[name] = bytes;
            warned += static_cast<std::size_t>(
                std::count_if(warnings.begin(), warnings.end(), [&](const std::string& warning) {
                    return warning.ends_with(directory.file(name)) && warning.find(size) != std::string::npos;
                }));
        }
        EXPECT_EQ(others(), expected);
        EXPECT_EQ(warned, copies.size()) << "a WARNING names each copy and its bytes";
        EXPECT_EQ(warnings.size(), copies.size());
    }
    // The frame of message 7 as a crash might leave a part of it.
    Bytes frame7() const { return frameOf(simpleMessage(7, shape)); }
};

// The first call that the system has refused is told as the cause.
TEST_F(RecoverySalvage, ANameThatIsTakenIsNotTheCauseOfWhatIsRefusedBehindIt) {
    const Bytes damaged = concatenated(unclosed(6), Bytes(100, 0xff));
    writeFile(directory.file(shape.name + ".cut-" + std::to_string(map(6).dataEnd)), Bytes{1});
    place(damaged);
    systemError_clear();
    {
        FaultPlatform platform;
        platform.failAll(FileCall::writeAt, ENOSPC);
        EXPECT_EQ(recover(), FILE_WRITE_ERROR);
    }
    EXPECT_EQ(systemError_first(), SystemError(ENOSPC));
}

TEST_F(RecoverySalvage, FewerThanEightBytesAreCutSilently) {
    const Bytes noFrame = fromHex("03 00 00 00 ff ff ff");
    for (std::size_t count = 1; count < 8; ++count) {
        expectSilence(concatenated(unclosed(6), cutAt(noFrame, count)), 6);
        expectSilence(concatenated(unclosed(8), cutAt(noFrame, count)), 8);
        expectSilence(concatenated(unclosed(0), cutAt(noFrame, count)), 0);
    }
}

TEST_F(RecoverySalvage, EightBytesThatAreNoFrameAreSaved) {
    const Bytes garbage(8, 0xff);
    expectSaved(concatenated(unclosed(8), garbage), 8, {{map(8).dataEnd, garbage}});
    expectSaved(concatenated(unclosed(0), garbage), 0, {{map(0).dataEnd, garbage}});
    const Bytes tooShort = withU32(garbage, 0, 54);
    expectSaved(concatenated(unclosed(6), tooShort), 6, {{map(6).dataEnd, tooShort}});
}

TEST_F(RecoverySalvage, ZeroBytesAreCutSilentlyHoweverMany) {
    for (const std::size_t count : {8U, 55U, 4096U, 20'000U, 100'000U}) {
        expectSilence(concatenated(unclosed(6), Bytes(count, 0)), 6);
        expectSilence(concatenated(unclosed(8), Bytes(count, 0)), 8);
        expectSilence(concatenated(footerlessImage(shape, simpleMessages(1, 8, shape)), Bytes(count, 0)), 8);
    }
}

TEST_F(RecoverySalvage, OneByteBehindZeroBytesIsSavedWithThem) {
    for (const std::size_t count : {60U, 20'000U, 1'200'000U}) {
        Bytes zeros(count, 0);
        zeros.back() = 1;
        expectSaved(concatenated(unclosed(6), zeros), 6, {{map(6).dataEnd, zeros}});
        expectSaved(concatenated(unclosed(8), zeros), 8, {{map(8).dataEnd, zeros}});
    }
}

TEST_F(RecoverySalvage, TheBeginningOfAFrameIsCutSilentlyAtEveryByte) {
    for (std::size_t count = 1; count < frame7().size(); ++count) {
        expectSilence(concatenated(unclosed(6), cutAt(frame7(), count)), 6);
    }
}

TEST_F(RecoverySalvage, TheBeginningOfABlocksFirstFrameIsCutSilentlyAtEveryByte) {
    const Bytes append = concatenated(Bytes(8, 0), frameOf(simpleMessage(9, shape)));
    for (std::size_t count = 1; count < append.size(); ++count) {
        expectSilence(concatenated(unclosed(8), cutAt(append, count)), 8);
    }
}

TEST_F(RecoverySalvage, TheBeginningOfAFrameWithNumbersIsCutSilentlyAtEveryByte) {
    shape = widestShape(4);
    const Bytes frame = frame7();
    for (std::size_t count = 1; count < frame.size(); count += 7) {
        expectSilence(concatenated(unclosed(6), cutAt(frame, count)), 6);
    }
}

TEST_F(RecoverySalvage, TheBeginningOfTheFooterBehindAFullBlockIsCutSilently) {
    const TableMap places = map(8);
    const Bytes whole = unclosedImage(shape, simpleMessages(1, 8, shape));
    for (std::size_t size = places.frame(8).end; size < places.dataEnd; size += 37) {
        Bytes damaged = cutAt(whole, size);
        putU64(&damaged, places.blockStarts[1], 0);
        expectSilence(damaged, 8);
    }
}

TEST_F(RecoverySalvage, ADamagedFooterIsSavedBeforeItIsWrittenAnew) {
    const TableMap places = map(6);
    Bytes damaged = unclosed(6);
    const std::size_t footer = places.frame(4).end;
    damaged[places.openBlockStart - 1] ^= 0x40;  // the footer's own length
    damaged[footer + 100] ^= 0x01;
    expectSaved(damaged, 6, {{footer, slice(damaged, footer, footer + places.footerSize)}});
}

TEST_F(RecoverySalvage, AFooterThatBreaksOffIntoZerosIsSavedBeforeItIsWrittenAnew) {
    const TableMap places = map(8);
    Bytes damaged = unclosed(8);
    putU64(&damaged, places.blockStarts[1], 0);
    std::fill(damaged.begin() + static_cast<std::ptrdiff_t>(places.frame(8).end + 30), damaged.end(), 0);
    expectSaved(damaged, 8,
                {{places.frame(8).end, slice(damaged, places.frame(8).end, places.frame(8).end + places.footerSize)}});
}

TEST_F(RecoverySalvage, ADamagedLengthWordIsSavedBeforeItIsWrittenAnew) {
    const TableMap places = map(10);
    const std::size_t second = places.blockStarts[1];
    const std::uint64_t right = places.openBlockStart - second;
    const std::uint64_t smallest = 8 + 4 * 55 + places.footerSize;
    for (const std::uint64_t wrong : {std::uint64_t{1}, std::uint64_t{8}, smallest - 1, right - 1, right + 1,
                                      std::uint64_t{100'000}, std::uint64_t{1} << 31, std::uint64_t{1} << 32,
                                      std::uint64_t{1} << 63, ~std::uint64_t{0}, ~std::uint64_t{7}}) {
        SCOPED_TRACE("length word " + std::to_string(wrong));
        const Bytes damaged = withU64(unclosed(10), second, wrong);
        expectSaved(damaged, 10, {{second, slice(damaged, second, second + 8)}});
    }
    expectSilence(withU64(unclosed(10), second, 0), 10);
}

TEST_F(RecoverySalvage, ALengthWordInFrontOfAnOpenBlockIsSavedBeforeItBecomesZero) {
    const TableMap places = map(6);
    const Bytes damaged = withU64(unclosed(6), places.blockStarts[1], 77);
    expectSaved(damaged, 6,
                {{places.blockStarts[1], slice(damaged, places.blockStarts[1], places.blockStarts[1] + 8)}});
}

TEST_F(RecoverySalvage, AFrameWhoseEndDisagreesIsSavedWithEverythingBehindIt) {
    const TableMap places = map(7);
    const Bytes damaged = withU32(unclosed(7), places.frame(6).end - 4, 1);
    expectSaved(damaged, 5, {{places.frame(5).end, slice(damaged, places.frame(5).end, damaged.size())}});
}

TEST_F(RecoverySalvage, ADamagedFirstFrameOfTheOpenBlockIsSavedWithItsLengthWord) {
    const TableMap places = map(7);
    const Bytes damaged = withU32(unclosed(7), places.frame(5).start, 0x01020304);
    const Bytes wrongEnd = withU32(unclosed(7), places.frame(5).end - 4, 0x01020304);
    expectSaved(wrongEnd, 4, {{places.blockStarts[1], slice(wrongEnd, places.blockStarts[1], wrongEnd.size())}});
    // A length that reaches beyond the file's end is no excuse when the fields end long before it.
    expectSaved(damaged, 4, {{places.blockStarts[1], slice(damaged, places.blockStarts[1], damaged.size())}});
}

TEST_F(RecoverySalvage, ACutFrameThatCannotBeOneIsSaved) {
    const std::size_t dataEnd = map(6).dataEnd;
    const Bytes whole = frame7();
    const std::size_t strings = 35;
    const std::vector<std::pair<const char*, Bytes>> tails = {
        {"a length below the smallest frame's", withU32(cutAt(whole, 40), 0, 54)},
        {"a length that ends exactly at the file's end", withU32(cutAt(whole, 60), 0, 60)},
        {"a length that ends before the file's end", withU32(cutAt(whole, 60), 0, 59)},
        {"a text that does not fit into the frame", withU32(cutAt(whole, 60), strings, 1000)},
        {"a text that leaves no room for the others",
         withU32(cutAt(whole, 60), strings, static_cast<std::uint32_t>(whole.size() - 50))},
        {"fields that end before the frame does",
         withU32(cutAt(whole, whole.size() - 2), 0, static_cast<std::uint32_t>(whole.size() + 1))},
    };
    for (const auto& [what, tail] : tails) {
        SCOPED_TRACE(what);
        expectSaved(concatenated(unclosed(6), tail), 6, {{dataEnd, tail}});
    }
}

TEST_F(RecoverySalvage, AFrameThatLooksCutIsSavedWhenAWholeOneStandsBehindIt) {
    const TableMap places = map(8);
    const Bytes whole = footerlessImage(shape, simpleMessages(1, 8, shape));
    const std::size_t start = places.frame(7).start;
    const std::size_t lastText = places.frame(7).end - 4 - std::string("f3-7").size() - 1 - 4;
    // The last text of message 7 and its msgLen say that the frame goes on to one byte behind the file's end.
    const auto damagedWith = [&](std::size_t bytesBehind) {
        Bytes bytes = concatenated(whole, Bytes(bytesBehind, 0x11));
        const std::size_t end = bytes.size() + 1;
        putU32(&bytes, start, static_cast<std::uint32_t>(end - start));
        putU32(&bytes, lastText, static_cast<std::uint32_t>(end - 4 - (lastText + 4)));
        return bytes;
    };
    for (const std::size_t bytesBehind : {0U, 1U, 40U, 20'000U}) {
        const Bytes damaged = damagedWith(bytesBehind);
        expectSaved(damaged, 6, {{start, slice(damaged, start, damaged.size())}});
    }
    // Without message 8's last byte nothing whole is there.
    expectSilence(cutAt(damagedWith(0), whole.size() - 1), 6);
}

TEST_F(RecoverySalvage, AWholeFrameIsFoundWhereverItStandsInWhatLooksCut) {
    const Bytes inner = frameOf(simpleMessage(8, shape));
    for (const std::size_t before : {100U, 16'384U - 60U, 16'384U - 4U, 16'384U, 16'385U, 50'000U}) {
        Message large = simpleMessage(7, shape);
        large.strings[2] = std::string(before, 'x') + std::string(inner.begin(), inner.end()) + std::string(500, 'y');
        const Bytes tail = cutAt(frameOf(large), frameOf(large).size() - 300);
        expectSaved(concatenated(unclosed(6), tail), 6, {{map(6).dataEnd, tail}});
    }
}

TEST_F(RecoverySalvage, ACutFrameFullOfWhatCouldBeLengthsIsSaved) {
    Message large = simpleMessage(7, shape);
    for (const std::size_t lengths : {1'000U, 101'000U}) {
        std::string numbers;
        for (std::size_t i = 0; i < lengths; ++i) {
            numbers += std::string("\x80\x00\x00\x00", 4);  // 128, and whatever the bytes between them come to
        }
        large.strings[2] = numbers;
        const Bytes whole = frameOf(large);
        const Bytes tail = cutAt(whole, whole.size() - 30);
        const Bytes damaged = concatenated(unclosed(6), tail);
        if (lengths == 1'000U) {
            expectSilence(damaged, 6);
        } else {
            expectSaved(damaged, 6, {{map(6).dataEnd, tail}});
        }
    }
}

TEST_F(RecoverySalvage, ACutFrameWithAnImpossibleNumberIsSaved) {
    shape.numericNames = {"Price", "OrderQty"};
    Bytes tail = cutAt(frame7(), 60);
    tail[35] = 3;
    expectSaved(concatenated(unclosed(6), tail), 6, {{map(6).dataEnd, tail}});
    tail = cutAt(frame7(), 60);
    tail[44] = 0xff;  // the second number's type, behind a long
    expectSaved(concatenated(unclosed(6), tail), 6, {{map(6).dataEnd, tail}});
    tail = withU32(cutAt(frame7(), 46), 0, 57);  // room for two absent numbers, and the first one is a long
    expectSaved(concatenated(unclosed(6), tail), 6, {{map(6).dataEnd, tail}});
}

TEST_F(RecoverySalvage, CompleteFramesBehindAFullBlockWithoutFooterAreSaved) {
    const TableMap places = map(8);
    const Bytes more = concatenated(frameOf(simpleMessage(9, shape)), frameOf(simpleMessage(10, shape)));
    const Bytes damaged = concatenated(footerlessImage(shape, simpleMessages(1, 8, shape)), more);
    expectSaved(damaged, 8, {{places.frame(8).end, more}});
}

TEST_F(RecoverySalvage, DamageInTheFirstBlockSavesAllBlocksBehindIt) {
    const TableMap places = map(10);
    Bytes damaged = withU32(unclosed(10), places.frame(3).end - 4, 0);
    damaged[places.blockStarts[1] - 1] ^= 0x01;  // so that the block is not closed either
    expectSaved(damaged, 2,
                {{places.frame(2).end, slice(damaged, places.frame(2).end, damaged.size())},
                 {places.headerSize, slice(damaged, places.headerSize, places.headerSize + 8)}});
}

TEST_F(RecoverySalvage, ACopyNeverReplacesAFile) {
    const Bytes garbage = withU32(fromText("what was that?"), 0, 3);  // no frame is that short
    const std::string name = shape.name + ".cut-" + std::to_string(map(6).dataEnd);
    writeFile(directory.file(name), fromText("first"));
    writeFile(directory.file(name + "-1"), fromText("second"));
    place(concatenated(unclosed(6), garbage));
    ASSERT_EQ(recover(), NO_ERROR);
    place(concatenated(unclosed(6), garbage));
    ASSERT_EQ(recover(), NO_ERROR);
    const std::map<std::string, Bytes> expected = {
        {name, fromText("first")}, {name + "-1", fromText("second")}, {name + "-2", garbage}, {name + "-3", garbage}};
    EXPECT_EQ(others(), expected);
    const std::vector<std::string> warnings = warningsOf("mtX_recover");
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_TRUE(warnings[0].ends_with(directory.file(name + "-2"))) << warnings[0];
    EXPECT_TRUE(warnings[1].ends_with(directory.file(name + "-3"))) << warnings[1];
}

// What recovery does when a call that makes the copy fails.
class RecoverySalvageFailure : public RecoverySalvage {
  protected:
    void expectNothingCut(FileCall call, int n, int error, ErrorCode expected) {
        const Bytes garbage(1'100'000, 0xee);  // more than is copied at once
        const Bytes damaged = concatenated(unclosed(6), garbage);
        place(damaged);
        {
            FaultPlatform platform;
            platform.failNth(call, n, error);
            EXPECT_EQ(recover(), expected) << fileCallName(call) << " " << n;
            EXPECT_EQ(platform.count(FileCall::truncate), 0) << fileCallName(call) << " " << n;
        }
        EXPECT_EQ(difference(fileBytes(), damaged), "") << fileCallName(call) << " " << n;
        EXPECT_EQ(warningsOf("tsX_openReplica"),
                  std::vector<std::string>{warningLine("tsX_openReplica", "Table " + path() + " recovery failed!")});
        log.clear();
        ASSERT_EQ(recover(), NO_ERROR) << "the next recovery, with a disk that works";
        EXPECT_EQ(difference(fileBytes(), closed(6)), "");
        std::size_t whole = 0;
        for (const auto& [name, bytes] : others()) {
            whole += bytes == garbage ? 1U : 0U;
            std::filesystem::remove(directory.file(name));
        }
        EXPECT_EQ(whole, 1U) << "copies with all that was cut";
        log.clear();
    }
};

TEST_F(RecoverySalvageFailure, NothingIsCutWhenTheCopyCannotBeOpened) {
    expectNothingCut(FileCall::open, 2, EACCES, FILE_OPEN_ERROR);
    expectNothingCut(FileCall::open, 2, EROFS, FILE_OPEN_ERROR);
}

TEST_F(RecoverySalvageFailure, NothingIsCutWhenTheCopyCannotBeWritten) {
    for (int n = 1; n <= 2; ++n) {
        expectNothingCut(FileCall::writeAt, n, ENOSPC, FILE_WRITE_ERROR);
    }
}

TEST_F(RecoverySalvageFailure, NothingIsCutWhenTheCopyCannotBeCommittedToTheDisk) {
    expectNothingCut(FileCall::sync, 1, EIO, FILE_WRITE_ERROR);
}

TEST_F(RecoverySalvageFailure, NothingIsCutWhenClosingTheCopyFails) {
    expectNothingCut(FileCall::close, 1, EIO, FILE_WRITE_ERROR);
}

TEST_F(RecoverySalvageFailure, ATornTailNeedsNoCopyAndIsCutWhereNoneCanBeMade) {
    const Bytes expected = closed(6);
    place(concatenated(unclosed(6), cutAt(frame7(), 50)));
    FaultPlatform platform;
    platform.failNth(FileCall::open, 2, EACCES);
    ASSERT_EQ(recover(), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::open), 1);
    EXPECT_EQ(difference(fileBytes(), expected), "");
}

}  // namespace
}  // namespace tabulo::internal::test
