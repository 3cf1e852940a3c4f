// Verifying tables that are damaged at random, and tables that are being written.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tabulo/writer.h"
#include "tests/api/damaged_table.h"
#include "tests/support/child_process.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::patchFile;

class ApiVerifyRandom : public TableTest {
  protected:
    void make(std::int32_t messages) {
        frames = eachFrame(layout, messages);
        writeTable(path(), layout, frames);
        sound = fileBytes();
    }

    std::vector<std::vector<std::byte>> frames;
    Bytes sound;
};

TEST_F(ApiVerifyRandom, FindsDamageOfBytesThatCanBeComparedAndCountsWhatIsWhole) {
    const std::uint32_t seed = internal::test::testSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    layout = ordersLayout(6);
    make(40);
    const TablePlan plan(layout, frames);
    int found = 0;
    const int rounds = 2000 * internal::test::testEffort();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        Bytes image = sound;
        std::vector<Stretch> damages;
        for (std::size_t i = 1 + random() % 3; i > 0; --i) {
            damages.push_back(damageAtRandom(&image, plan.headerEnd - 80, &random));
        }
        patchFile(path().string(), 0, image);
        const Verified verified = verifyAll(path());
        const std::string text =
            "round " + std::to_string(round) + ", damaged" + stretchesText(damages) + "\n" + verified.text();
        EXPECT_TRUE(verified.result.complete);
        EXPECT_EQ(verified.result.bytes, static_cast<std::int64_t>(sound.size())) << text;
        EXPECT_EQ(verified.result.messages, salvageAll(path()).result.messages) << text;
        if (isCheckedDamage(plan, sound, image)) {
            found += 1;
            EXPECT_GE(verified.result.damages, 1) << text;
        }
        if (image == sound) {
            EXPECT_TRUE(verified.findings.empty()) << text;
        }
        for (const Finding& finding : verified.findings) {
            EXPECT_GE(finding.intactBefore, 0) << text;
            EXPECT_GE(finding.intactBehind, 0) << text;
            EXPECT_LT(finding.offset, static_cast<std::int64_t>(sound.size())) << text;
        }
    }
    EXPECT_GT(found, rounds / 4);
}

class ApiVerifyLive : public TableTest {
  protected:
    // Looks at the table again and again beside a process that writes it.
    void lookBeside(const std::function<void(Writer&)>& write, const std::function<void()>& look) {
        const internal::test::ProcessSignal opened;
        internal::test::ChildProcess child([&] {
            Writer writer = Writer::openOrCreate(path(), layout);
            opened.raise();
            write(writer);
            writer.close();
            return 0;
        });
        ASSERT_TRUE(opened.await());
        const bool isTold = isOpenForWriting(path()) == OpenForWriting::yes;
        int looks = 0;
        do {
            look();
            looks += 1;
        } while (isTold && !HasFailure() && isOpenForWriting(path()) == OpenForWriting::yes);
        EXPECT_GT(looks, 0);
        EXPECT_EQ(child.wait(), 0);
    }
};

TEST_F(ApiVerifyLive, FindsNoDamageAndSalvageNoGapBesideAWriter) {
    layout = ordersLayout(7);
    std::int64_t last = 0;
    std::int64_t lastSalvaged = 0;
    lookBeside(
        [](Writer& writer) {
            for (std::int32_t n = 1; n <= 40000; ++n) {
                SimpleMessage simple(n);
                writer.append(simple.message);
            }
        },
        [&] {
            const Verified verified = verifyAll(path());
            EXPECT_EQ(verified.result.damages, 0) << verified.text();
            EXPECT_GE(verified.result.messages, last);
            last = verified.result.messages;
            std::int32_t expected = 0;
            SalvageSink sink;
            sink.message = [&](const MessageView& message, const auto&) {
                expected += 1;
                EXPECT_EQ(message.uniformId(), expected);
            };
            const SalvageResult salvaged = salvage(path(), sink);
            EXPECT_EQ(salvaged.gaps, 0);
            EXPECT_GE(salvaged.messages, lastSalvaged);
            lastSalvaged = salvaged.messages;
        });
    EXPECT_EQ(verifyAll(path()).result.messages, 40000);
}

TEST_F(ApiVerifyLive, CallsATableThatIsDroppedMeanwhileDroppedAndNotDamaged) {
    layout = ordersLayout(5);
    int dropped = 0;
    lookBeside(
        [](Writer& writer) {
            for (std::int32_t round = 0; round < 400; ++round) {
                for (std::int32_t n = 1; n <= 20 + 3 * (round % 40); ++n) {
                    writer.append(SimpleMessage(n).message);
                }
                writer.drop();
            }
        },
        [&] {
            try {
                const Verified verified = verifyAll(path());
                EXPECT_EQ(verified.result.damages, 0) << verified.text();
            } catch (const Error& error) {
                // While the header is made anew there is none.
                const bool isAllowed = error.code() == Code::vseek || error.code() == Code::fileSize ||
                                       error.code() == Code::streamNotEnoughData;
                EXPECT_TRUE(isAllowed) << error.what();
                dropped += 1;
            }
        });
    EXPECT_EQ(verifyAll(path()).result.damages, 0);
}

}  // namespace
}  // namespace tabulo::test
