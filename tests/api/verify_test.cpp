#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/api/damaged_table.h"
#include "tests/support/child_process.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::appendFile;
using internal::test::patchFile;
using internal::test::pattern;
using internal::test::writeFile;

class ApiVerify : public TableTest {
  protected:
    void make(std::int32_t messages) {
        frames = eachFrame(layout, messages);
        std::filesystem::remove(path());
        writeTable(path(), layout, frames);
        sound = fileBytes();
    }
    TablePlan plan() const { return TablePlan(layout, frames); }
    void zero(std::size_t begin, std::size_t end) { patchFile(path().string(), begin, Bytes(end - begin, 0)); }
    // The one finding of a table in which `length` bytes at `offset` were overwritten.
    Finding findingAt(std::size_t offset, std::size_t length, std::uint8_t first = 9) {
        patchFile(path().string(), 0, sound);
        patchFile(path().string(), offset, pattern(length, first));
        const Verified verified = verifyAll(path());
        EXPECT_EQ(verified.findings.size(), 1U) << offset << ": " << verified.text();
        return verified.findings.empty() ? Finding{} : verified.findings[0];
    }

    // Where the value begins of which the byte at `place` of a footer's two records is one.
    static std::size_t rangeValue(std::size_t footer, std::size_t place) {
        const std::size_t record = footer + (place - footer) / (36 + 18) * (36 + 18);
        const std::size_t byte = place - record;
        const std::size_t value = byte < 8    ? byte / 4 * 4  // sequence number, uniform id
                                  : byte < 16 ? 8             // time
                                  : byte < 36 ? byte / 4 * 4  // an id of each class
                                              : 36 + (byte - 36) / 9 * 9;
        return record + value;
    }

    std::vector<std::vector<std::byte>> frames;
    Bytes sound;
};

TEST_F(ApiVerify, FindsNothingInSoundTablesOfEverySize) {
    for (const std::int32_t perBlock : {1, 3}) {
        layout = ordersLayout(perBlock);
        for (std::int32_t messages = 0; messages <= 10; ++messages) {
            make(messages);
            const Verified verified = verifyAll(path());
            EXPECT_TRUE(verified.findings.empty()) << verified.text();
            EXPECT_EQ(verified.result.messages, messages);
            EXPECT_EQ(verified.result.blocks, (messages + perBlock - 1) / perBlock);
            EXPECT_EQ(verified.result.bytes, static_cast<std::int64_t>(sound.size()));
            EXPECT_EQ(verified.result.damages + verified.result.notes, 0);
            EXPECT_TRUE(verified.result.complete);
            EXPECT_EQ(difference(fileBytes(), sound), "");
        }
    }
}

TEST_F(ApiVerify, FindsNothingInTablesWithEveryKindOfValue) {
    layout.summarisedTexts = 2;
    Writer writer = Writer::create(path(), layout);
    for (std::int32_t n = 0; n < 20; ++n) {
        SimpleMessage simple(n + 1);
        simple.message.id = n % 6 == 5 ? -1 : firstId(static_cast<MessageClass>(n % 5)) + n;
        simple.message.seqNum = n % 3 == 0 ? -n : n;
        simple.message.prevSeqNum = n % 3 == 1 ? -(n - 1) : 0;
        simple.message.outOfSequence = n % 7 == 0;
        simple.message.text0 = n % 4 == 0 ? Text("") : Text();
        simple.message.numbers = {n % 4 == 1 ? Number(std::int64_t{n}) : Number(std::nan("")),
                                  n < 9 ? Number(-0.0 * n) : Number()};
        writer.append(simple.message);
    }
    writer.close();
    const Verified verified = verifyAll(path());
    EXPECT_TRUE(verified.findings.empty()) << verified.text();
}

TEST_F(ApiVerify, FindsEveryByteOfAFooterThatIsNotWhatTheMessagesSay) {
    make(8);
    const Stretch footer = plan().footers[1];
    const std::size_t filters = footer.begin + 2 * (36 + 18);
    // Of the filters' many bits only some.
    for (std::size_t i = footer.begin; i < footer.end;
         i += i < filters || i >= footer.end - 68 || i % 7 == 0 ? 1U : 3U) {
        const bool inFilters = i >= filters && i < filters + 4 * 1256;
        const bool inBits = inFilters && (i - filters) % 1256 >= 4;
        // The bits of a filter: one more, then none at all.
        const std::uint8_t value = inBits ? 0xff : static_cast<std::uint8_t>(sound[i] + 1);
        for (const std::uint8_t byte : {value, std::uint8_t{0}}) {
            if (byte == sound[i]) {
                continue;
            }
            patchFile(path().string(), 0, sound);
            patchFile(path().string(), i, Bytes{byte});
            const Verified verified = verifyAll(path());
            ASSERT_EQ(verified.findings.size(), 1U) << i - footer.begin << ": " << verified.text();
            const Finding& finding = verified.findings[0];
            const bool lacks = (sound[i] & ~byte) != 0;
            EXPECT_EQ(finding.damage, !inBits || lacks) << i - footer.begin << ": " << verified.text();
            EXPECT_EQ(finding.block, static_cast<std::int64_t>(plan().blocks[1]));
            EXPECT_GE(finding.offset, static_cast<std::int64_t>(footer.begin));
            EXPECT_LE(finding.offset, static_cast<std::int64_t>(i));
            EXPECT_EQ(finding.intactBefore, 3);
            const FindingKind kind = inBits                ? FindingKind::filter
                                     : inFilters           ? FindingKind::footer
                                     : i < filters         ? FindingKind::range
                                     : i >= footer.end - 8 ? FindingKind::footer
                                                           : FindingKind::statistics;
            // An unknown type of a number is none that a footer has.
            EXPECT_TRUE(finding.kind == kind || (i < filters && finding.kind == FindingKind::footer))
                << i - footer.begin << ": " << verified.text();
            if (finding.kind == FindingKind::range) {
                EXPECT_EQ(finding.offset, static_cast<std::int64_t>(rangeValue(footer.begin, i))) << verified.text();
            }
        }
    }
}

TEST_F(ApiVerify, TellsADamagedMessageWithWhatIsIntactAroundIt) {
    layout = ordersLayout(5);
    make(13);
    for (std::size_t n = 1; n <= 12; ++n) {  // 13 is the last
        const Stretch frame = plan().frames[n - 1];
        const Finding finding = findingAt(n % 2 == 0 ? frame.begin : frame.end - 4, 4);
        EXPECT_EQ(finding.kind, FindingKind::frame);
        EXPECT_TRUE(finding.damage);
        EXPECT_EQ(finding.offset, static_cast<std::int64_t>(frame.begin));
        EXPECT_EQ(finding.block, static_cast<std::int64_t>(plan().blocks[(n - 1) / 5]));
        EXPECT_EQ(finding.intactBefore, static_cast<std::int64_t>((n - 1) % 5));
        EXPECT_EQ(finding.intactBehind, (n <= 10 ? 4 : 2) - finding.intactBefore);
    }
    const Finding finding = findingAt(plan().frames[12].begin, 4);
    EXPECT_EQ(finding.kind, FindingKind::tail);
    EXPECT_TRUE(finding.damage);
    EXPECT_EQ(finding.intactBefore, 2);
}

// As a writer leaves it that is stopped between a block's footer and its length.
TEST_F(ApiVerify, TellsALengthThatWasNotWrittenInFrontOfAllMessagesOfItsBlock) {
    make(5);
    const Bytes header(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(plan().headerEnd));
    make(6);
    appendFile(path().string(), Bytes(8, 0));
    EXPECT_EQ(verifyAll(path()).result.blocks, 2) << "the third one has a length's place and no message";
    make(6);
    patchFile(path().string(), 0, header);
    zero(plan().blocks[1], plan().blocks[1] + 8);
    const Verified verified = verifyAll(path());
    ASSERT_FALSE(verified.findings.empty());
    EXPECT_EQ(verified.findings[0].kind, FindingKind::lengthWord) << verified.text();
    EXPECT_EQ(verified.findings[0].intactBefore, 0);
    EXPECT_EQ(verified.findings[0].intactBehind, 3);
}

TEST_F(ApiVerify, TellsADamagedLengthOfABlockByItsFooterAndTheReverse) {
    make(8);
    for (const std::size_t block : {std::size_t{0}, std::size_t{1}}) {
        Finding finding = findingAt(plan().blocks[block], 8);
        EXPECT_EQ(finding.kind, FindingKind::lengthWord);
        EXPECT_EQ(finding.offset, static_cast<std::int64_t>(plan().blocks[block]));
        EXPECT_EQ(finding.intactBehind, 3);
        finding = findingAt(plan().footers[block].end - 8, 8);
        EXPECT_EQ(finding.kind, FindingKind::footer);
        EXPECT_EQ(finding.offset, static_cast<std::int64_t>(plan().footers[block].end) - 8);
        EXPECT_EQ(finding.intactBefore, 3);
    }
    patchFile(path().string(), 0, sound);
    zero(plan().blocks[0], plan().blocks[0] + 8);
    const Verified verified = verifyAll(path());
    ASSERT_EQ(verified.damages().size(), 1U) << verified.text();
    EXPECT_EQ(verified.findings[0].kind, FindingKind::lengthWord);
}

TEST_F(ApiVerify, GoesOnBehindDamageAndReportsInTheOrderOfTheFile) {
    make(20);
    zero(plan().blocks[1], plan().frames[3].end);                     // length and first message
    patchFile(path().string(), plan().frames[10].begin, pattern(4));  // last message of block 4
    zero(plan().footers[5].begin, plan().footers[5].begin + 4);       // a range
    const Verified verified = verifyAll(path());
    EXPECT_EQ(verified.result.messages, 18) << verified.text();
    EXPECT_EQ(verified.result.blocks, 7);
    std::vector<std::int64_t> blocks;
    for (const Finding& finding : verified.damages()) {
        blocks.push_back(finding.block.value_or(-1));
    }
    const auto at = [&](std::size_t block) { return static_cast<std::int64_t>(plan().blocks[block]); };
    EXPECT_EQ(blocks, (std::vector<std::int64_t>{at(1), at(1), at(3), at(5)})) << verified.text();
    EXPECT_EQ(verified.result.damages, 4);
    const auto inOrder = [](const Finding& left, const Finding& right) { return left.offset < right.offset; };
    EXPECT_TRUE(std::is_sorted(verified.findings.begin(), verified.findings.end(), inOrder)) << verified.text();
}

TEST_F(ApiVerify, GoesOnAtTheNextFooterWhenABlocksEndsAreBothLost) {
    make(20);
    zero(plan().frames[3].begin, plan().frames[4].end);
    zero(plan().blocks[1], plan().blocks[1] + 8);
    zero(plan().footers[1].begin, plan().footers[1].end);
    const Verified verified = verifyAll(path());
    EXPECT_EQ(verified.result.messages, 18) << verified.text();
    for (const Finding& finding : verified.damages()) {
        EXPECT_EQ(finding.block, static_cast<std::int64_t>(plan().blocks[1])) << verified.text();
    }
    EXPECT_GE(verified.result.damages, 2) << verified.text();
}

TEST_F(ApiVerify, FindsWhatTheHeaderSaysWrongly) {
    make(8);
    const std::size_t tail = plan().headerEnd - 88;
    for (std::size_t i = tail + 8; i < plan().headerEnd; ++i) {  // `reserved` is kept as it is found
        patchFile(path().string(), 0, sound);
        patchFile(path().string(), i, Bytes{static_cast<std::uint8_t>(sound[i] ^ 1)});
        const Verified verified = verifyAll(path());
        ASSERT_EQ(verified.result.damages, 1) << i - tail << ": " << verified.text();
        const Finding finding = verified.damages()[0];
        EXPECT_EQ(finding.kind, i < tail + 28 ? FindingKind::header : FindingKind::statistics);
        EXPECT_EQ(finding.block, std::nullopt);
        EXPECT_GE(finding.offset, static_cast<std::int64_t>(tail));
        EXPECT_LE(finding.offset, static_cast<std::int64_t>(i));
    }
    for (const std::size_t place : {tail + 8, tail + 16}) {  // also those that would be zero
        patchFile(path().string(), 0, sound);
        zero(place, place + 8);
        EXPECT_EQ(verifyAll(path()).result.damages, 1) << place - tail << ": " << verifyAll(path()).text();
    }
}

TEST_F(ApiVerify, FindsThatTheHeadersPlacesAreWrongInFrontOfBlocksThatCannotBeTold) {
    make(11);
    zero(plan().frames[4].begin, sound.size());
    sound = fileBytes();
    const std::size_t tail = plan().headerEnd - 88;
    const auto headers = [&] {
        const std::vector<Finding> damages = verifyAll(path()).damages();
        return std::count_if(damages.begin(), damages.end(),
                             [](const Finding& finding) { return finding.kind == FindingKind::header; });
    };
    EXPECT_EQ(headers(), 0) << verifyAll(path()).text();
    for (const std::size_t place : {tail + 8, tail + 16}) {
        patchFile(path().string(), 0, sound);
        const std::uint64_t wrong = plan().frames[1].begin + 1;
        Bytes bytes(sizeof(wrong));
        std::memcpy(bytes.data(), &wrong, sizeof(wrong));
        patchFile(path().string(), place, bytes);
        EXPECT_EQ(headers(), 1) << place - tail << ": " << verifyAll(path()).text();
    }
}

TEST_F(ApiVerify, TakesATableThatWasNotClosedForAStaleOne) {
    for (std::int32_t messages = 0; messages <= 8; ++messages) {
        std::filesystem::remove(path());
        Writer writer = Writer::create(path(), layout);
        writer.appendFrames(simpleFrames(layout, 1, messages));
        if (isOpenForWriting(path()) == OpenForWriting::yes) {
            const Verified verified = verifyAll(path());
            EXPECT_TRUE(verified.findings.empty()) << messages << ": " << verified.text();
        }
        const std::filesystem::path copy = directory.file("copy");
        std::filesystem::copy_file(path(), copy, std::filesystem::copy_options::overwrite_existing);
        const Verified verified = verifyAll(copy);
        EXPECT_EQ(verified.result.damages, 0) << messages << ": " << verified.text();
        EXPECT_EQ(verified.result.notes, messages % 3 == 0 ? 0 : 1) << messages << ": " << verified.text();
        EXPECT_EQ(verified.result.messages, messages);
        // The next message has been written in part.
        const std::vector<std::byte> next = simpleFrames(layout, messages + 1, messages + 1);
        Bytes part(messages % 3 == 0 ? 8 : 0, 0);
        for (std::size_t i = 0; i + 1 < next.size(); ++i) {
            part.push_back(static_cast<std::uint8_t>(next[i]));
        }
        for (std::size_t length = 1; length <= part.size(); length += 9) {
            std::filesystem::copy_file(path(), copy, std::filesystem::copy_options::overwrite_existing);
            appendFile(copy.string(), Bytes(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(length)));
            const Verified cut = verifyAll(copy);
            EXPECT_EQ(cut.result.damages, 0) << messages << ", " << length << ": " << cut.text();
            EXPECT_EQ(cut.result.messages, messages);
        }
    }
}

TEST_F(ApiVerify, TakesABlockWhoseFooterOrLengthWasNotWrittenYetForNoDamage) {
    // As a writer that is stopped while it closes the third block leaves it: the header knows two.
    make(6);
    const Bytes header(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(plan().headerEnd));
    make(9);
    std::copy(header.begin(), header.end(), sound.begin());
    std::fill_n(sound.begin() + static_cast<std::ptrdiff_t>(plan().blocks[2]), 8, 0);
    for (std::size_t end = plan().frames[8].begin; end <= sound.size(); end += end < plan().frames[8].end ? 7U : 301U) {
        writeFile(path().string(), Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(end)));
        const Verified verified = verifyAll(path());
        EXPECT_EQ(verified.result.damages, 0) << end << ": " << verified.text();
        EXPECT_GE(verified.result.notes, 1) << end;
        EXPECT_EQ(verified.result.messages, end >= plan().frames[8].end ? 9 : 8);
    }
}

TEST_F(ApiVerify, FindsThatAClosedTableWasCut) {
    make(8);
    for (std::size_t end = plan().headerEnd + 1; end < sound.size(); end += 97) {
        writeFile(path().string(), Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(end)));
        EXPECT_GE(verifyAll(path()).result.damages, 1) << end;
    }
    // A drop that was stopped leaves the header alone.
    writeFile(path().string(), Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(plan().headerEnd)));
    EXPECT_EQ(verifyAll(path()).result.damages, 0);
    EXPECT_EQ(verifyAll(path()).result.notes, 1);
}

TEST_F(ApiVerify, NotesUniformIdsThatFall) {
    Writer writer = Writer::create(path(), layout);
    for (const std::int32_t n : {1, 2, 3, 5, 4, 6, 7}) {
        writer.append(SimpleMessage(n).message);
    }
    writer.close();
    const Verified verified = verifyAll(path());
    ASSERT_EQ(verified.findings.size(), 1U) << verified.text();
    EXPECT_EQ(verified.findings[0].kind, FindingKind::order);
    EXPECT_FALSE(verified.findings[0].damage);
    EXPECT_NE(verified.findings[0].text.find("at 1 place(s)"), std::string::npos) << verified.findings[0].text;
    EXPECT_EQ(verified.result.notes, 1);
}

TEST_F(ApiVerify, TellsWhereUniformIdsFallFirst) {
    layout = ordersLayout(10);
    std::vector<std::int64_t> offsets;
    Writer writer = Writer::create(path(), layout);
    for (const std::int32_t n : {1, 2, 5, 4, 6, 3, 7}) {
        offsets.push_back(writer.end().offset);
        writer.append(SimpleMessage(n).message);
    }
    writer.close();
    const Verified verified = verifyAll(path());
    ASSERT_EQ(verified.findings.size(), 1U) << verified.text();
    EXPECT_EQ(verified.findings[0].offset, offsets[3]);
}

TEST_F(ApiVerify, IsToldToEndAndTellsHowFarItHasCome) {
    layout = ordersLayout(5000);
    make(4000);
    std::stop_source stop;
    int calls = 0;
    Work work{.stop = stop.get_token(), .progress = [&](const Progress& progress) {
                  calls += 1;
                  EXPECT_EQ(progress.total, static_cast<std::int64_t>(sound.size()));
                  if (progress.messages >= 2000) {
                      stop.request_stop();
                  }
              }};
    const VerifyResult stopped = verify(path(), {}, work);
    EXPECT_FALSE(stopped.complete);
    EXPECT_GE(calls, 3);
    work.stop = {};
    EXPECT_TRUE(verify(path(), {}, work).complete);
    work.progress = [](const Progress&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(static_cast<void>(verify(path(), {}, work)), std::runtime_error);
    patchFile(path().string(), plan().frames[7].begin, pattern(4));
    const auto report = [](const Finding&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(static_cast<void>(verify(path(), report)), std::runtime_error);
}

TEST_F(ApiVerify, RefusesATableWhoseHeaderKnowsLessThanWhenTheVerifyingBegan) {
    layout = ordersLayout(1200);
    make(3000);
    patchFile(path().string(), plan().frames[2700].begin, pattern(4));
    const std::size_t tail = plan().headerEnd - 88;
    for (const std::size_t end : {tail + 8, tail + 16}) {  // of the last block, and of the messages
        patchFile(path().string(), tail,
                  Bytes(sound.begin() + static_cast<std::ptrdiff_t>(tail),
                        sound.begin() + static_cast<std::ptrdiff_t>(tail + 24)));
        const Work work{.progress = [&](const Progress& progress) {
            if (progress.messages == 1000) {
                patchFile(path().string(), end, Bytes{static_cast<std::uint8_t>(sound[end] - 1)});
            }
        }};
        EXPECT_TABULO_ERROR(vseek, static_cast<void>(verify(path(), {}, work)));
    }
}

TEST_F(ApiVerify, RefusesWhatHasNoLayoutToCheckAgainst) {
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(verifyAll(path())));
    const std::vector<std::int32_t> tags = {1};
    SessionInfo::create(directory.file("session"), tags).close();
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(verifyAll(directory.file("session"))));
    make(3);
    zero(0, 5);
    EXPECT_TABULO_ERROR(signature, static_cast<void>(verifyAll(path())));
}

}  // namespace
}  // namespace tabulo::test
