// Single blocks as verifying finds them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/api/damaged_table.h"
#include "tests/support/fault_platform.h"

namespace tabulo::test {
namespace {

using internal::test::FaultPlatform;
using internal::test::FileCall;
using internal::test::patchFile;
using internal::test::pattern;
using internal::test::writeFile;

class ApiVerifyBlock : public TableTest {
  protected:
    void make(std::int32_t messages) {
        frames = eachFrame(layout, messages);
        std::filesystem::remove(path());
        writeTable(path(), layout, frames);
        sound = fileBytes();
    }
    TablePlan plan() const { return TablePlan(layout, frames); }
    void zero(std::size_t begin, std::size_t end) { patchFile(path().string(), begin, Bytes(end - begin, 0)); }
    // As a writer leaves the file that is stopped behind the third block's footer, in front of its length.
    void stopInFrontOfTheLength() {
        make(6);
        const Bytes header(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(plan().headerEnd));
        make(9);
        std::copy(header.begin(), header.end(), sound.begin());
        std::fill_n(sound.begin() + static_cast<std::ptrdiff_t>(plan().blocks[2]), 8, 0);
        writeFile(path().string(), sound);
    }
    // The findings but for the note of a header that knows less; each has to be about the third block.
    std::vector<Finding> blockFindings() const {
        std::vector<Finding> findings;
        for (const Finding& finding : verifyAll(path()).findings) {
            if (finding.block.has_value()) {
                EXPECT_EQ(finding.block, static_cast<std::int64_t>(plan().blocks[2])) << finding.text;
                findings.push_back(finding);
            }
        }
        return findings;
    }

    std::vector<std::vector<std::byte>> frames;
    Bytes sound;
};

TEST_F(ApiVerifyBlock, WithoutItsLengthAtTheEndIsANoteUnlessAWriterIsAtItAndInFrontOfAnotherBlockIsDamage) {
    stopInFrontOfTheLength();
    std::vector<Finding> findings = blockFindings();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].kind, FindingKind::lengthWord);
    EXPECT_FALSE(findings[0].damage);
    {
        const int descriptor = ::open(path().c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(::flock(descriptor, LOCK_EX), 0);
        if (isOpenForWriting(path()) == OpenForWriting::yes) {
            EXPECT_EQ(verifyAll(path()).findings.size(), 0U) << verifyAll(path()).text();
        }
        ::close(descriptor);
    }
    const Bytes header(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(plan().headerEnd));
    make(10);
    patchFile(path().string(), 0, header);
    zero(plan().blocks[2], plan().blocks[2] + 8);
    findings = blockFindings();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].kind, FindingKind::lengthWord);
    EXPECT_TRUE(findings[0].damage);
}

TEST_F(ApiVerifyBlock, WithoutItsLengthAndWithAFooterOfZerosIsANoteAndWithAWrongFooterIsDamage) {
    stopInFrontOfTheLength();
    zero(plan().footers[2].begin, plan().footers[2].end);
    std::vector<Finding> findings = blockFindings();
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[1].kind, FindingKind::tail);
    EXPECT_EQ(findings[1].offset, static_cast<std::int64_t>(plan().footers[2].begin));
    EXPECT_FALSE(findings[0].damage || findings[1].damage);
    writeFile(path().string(), sound);
    patchFile(path().string(), plan().footers[2].begin, pattern(4));
    findings = blockFindings();
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[1].kind, FindingKind::range);
    EXPECT_TRUE(findings[1].damage);
}

TEST_F(ApiVerifyBlock, BehindLostMessagesAndAFooterIsComparedWithItsStatisticsAgain) {
    make(11);
    patchFile(path().string(), plan().frames[1].begin, pattern(4));
    for (const std::size_t block : {std::size_t{1}, std::size_t{2}}) {
        patchFile(path().string(), plan().footers[block].end - 68, pattern(4));
        const Verified verified = verifyAll(path());
        ASSERT_EQ(verified.damages().size(), 1 + block) << verified.text();
        EXPECT_EQ(verified.damages().back().kind, FindingKind::statistics) << verified.text();
        EXPECT_EQ(verified.damages().back().block, static_cast<std::int64_t>(plan().blocks[block]));
    }
}

TEST_F(ApiVerifyBlock, ThatLacksAMessageHasARangeWithAllThatIsLeft) {
    make(8);
    patchFile(path().string(), plan().frames[1].begin, pattern(4));
    patchFile(path().string(), plan().footers[0].begin, Bytes{2, 0, 0, 0});  // the smallest sequence number is 1
    const Verified verified = verifyAll(path());
    ASSERT_EQ(verified.damages().size(), 2U) << verified.text();
    EXPECT_EQ(verified.damages()[1].kind, FindingKind::range) << verified.text();
    EXPECT_EQ(verified.damages()[1].offset, static_cast<std::int64_t>(plan().footers[0].begin)) << verified.text();
}

TEST_F(ApiVerifyBlock, ThatLacksAMessageHasARangeOfNumbersWithAllThatIsLeft) {
    make(8);
    patchFile(path().string(), plan().frames[1].begin, pattern(4));
    const auto smallest = plan().footers[0].begin + 36;     // of the first number: its type, its value
    patchFile(path().string(), smallest + 8, Bytes{0x7F});  // the upper byte: 0.5 becomes a huge number
    const Verified verified = verifyAll(path());
    ASSERT_EQ(verified.damages().size(), 2U) << verified.text();
    EXPECT_EQ(verified.damages()[1].kind, FindingKind::range) << verified.text();
    EXPECT_EQ(verified.damages()[1].offset, static_cast<std::int64_t>(smallest)) << verified.text();
}

TEST_F(ApiVerifyBlock, ThatCannotBeReadIsNoSoundOne) {
    make(8);
    int reads = 0;
    {
        const FaultPlatform platform;
        EXPECT_EQ(verifyAll(path()).findings.size(), 0U);
        reads = platform.count(FileCall::readAt);
    }
    ASSERT_GT(reads, 4);
    for (int n = 1; n <= reads; ++n) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        const Error error = errorOf([&] { static_cast<void>(verifyAll(path())); });
        EXPECT_EQ(error.name(), codeName(Code::fileRead)) << "read " << n << ": " << error.what();
    }
}

TEST_F(ApiVerifyBlock, AtTheEndWithALengthAndWithoutAFooterIsDamage) {
    make(8);
    patchFile(path().string(), plan().blocks[2], pattern(8, 77));
    const std::vector<Finding> findings = blockFindings();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].kind, FindingKind::lengthWord) << findings[0].text;
    EXPECT_TRUE(findings[0].damage);
}

TEST_F(ApiVerifyBlock, ThatLacksAMessageAndHasNoSoundFooterIsToldSoInThisOrder) {
    make(8);
    // One message in the place of two.
    const Stretch two{plan().frames[1].begin, plan().frames[2].end};
    std::vector<std::byte> one;
    Message message{.uniformId = 2, .wire = std::string_view()};
    encode(message, layout, one);
    const std::string text(two.end - two.begin - one.size(), 'x');
    message.wire = text;
    one.clear();
    encode(message, layout, one);
    Bytes bytes(one.size());
    std::memcpy(bytes.data(), one.data(), one.size());
    patchFile(path().string(), two.begin, bytes);
    patchFile(path().string(), plan().footers[0].begin + 36, pattern(1, 9));  // an unknown type of a number
    const Verified verified = verifyAll(path());
    ASSERT_EQ(verified.damages().size(), 2U) << verified.text();
    EXPECT_EQ(verified.damages()[0].kind, FindingKind::frame) << verified.text();
    EXPECT_EQ(verified.damages()[1].kind, FindingKind::footer) << verified.text();
    EXPECT_EQ(verified.damages()[0].offset, verified.damages()[1].offset) << verified.text();
}

TEST_F(ApiVerifyBlock, TellsWhereItsFilterLacksATextAndWhereItHasOneTooMany) {
    make(4);
    const std::size_t bits = plan().footers[0].begin + 2 * (36 + 18) + 4;  // behind the two records and their number
    std::size_t set = bits;
    while (sound[set] == 0) {
        ++set;
    }
    for (const std::uint8_t byte : Bytes{0, 255}) {
        patchFile(path().string(), 0, sound);
        patchFile(path().string(), set, Bytes{byte});
        const Verified verified = verifyAll(path());
        ASSERT_EQ(verified.findings.size(), 1U) << verified.text();
        EXPECT_EQ(verified.findings[0].kind, FindingKind::filter) << verified.text();
        EXPECT_EQ(verified.findings[0].damage, byte == 0) << verified.text();
        EXPECT_EQ(verified.findings[0].offset, static_cast<std::int64_t>(bits + (set - bits) / 4 * 4));
    }
}

}  // namespace
}  // namespace tabulo::test
