// Salvaging what recoveries have cut out of tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "tabulo/writer.h"
#include "tests/api/damaged_table.h"
#include "tests/support/fault_platform.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::FaultPlatform;
using internal::test::FileCall;
using internal::test::patchFile;
using internal::test::pattern;
using internal::test::RecordedCall;
using internal::test::writeFile;

class ApiSalvageCutFiles : public TableTest {
  protected:
    void make(std::int32_t messages) {
        frames = eachFrame(layout, messages);
        writeTable(path(), layout, frames);
    }
    TablePlan plan() const { return TablePlan(layout, frames); }
    // Opens the table for writing, which recovers it, and appends messages.
    void recover(std::int32_t first = 1, std::int32_t last = 0) {
        Writer writer = Writer::open(path());
        writer.appendFrames(simpleFrames(layout, first, last));
        writer.close();
    }
    void damageFrame(std::size_t n) { patchFile(path().string(), plan().frames[n - 1].begin, pattern(4, 9)); }
    std::filesystem::path cutFile(std::size_t offset, const std::string& more = {}) const {
        return directory.file("orders.cut-" + std::to_string(offset) + more);
    }

    std::vector<std::vector<std::byte>> frames;
};

TEST_F(ApiSalvageCutFiles, GiveWhatStandsInThemInTheOrderOfTheTable) {
    layout = ordersLayout(100);
    make(9);
    const std::size_t damaged = plan().frames[3].begin;
    damageFrame(4);
    recover();
    ASSERT_TRUE(std::filesystem::exists(cutFile(damaged)));
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{1, 2, 3, 5, 6, 7, 8, 9})) << salvaged.text();
    EXPECT_EQ(salvaged.result.messages, 8);
    EXPECT_EQ(salvaged.result.fromCutFiles, 5);
    ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].file, cutFile(damaged));
    EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(damaged));
    EXPECT_EQ(salvaged.gaps[0].length, static_cast<std::int64_t>(frames[3].size()));
    EXPECT_EQ(salvaged.gaps[0].uniformIdBefore, 3);
    EXPECT_EQ(salvaged.gaps[0].uniformIdBehind, 5);
    EXPECT_EQ(salvaged.messages[3].file, cutFile(damaged));
    EXPECT_EQ(salvaged.messages[3].position.offset, static_cast<std::int64_t>(plan().frames[4].begin));
    EXPECT_EQ(salvaged.messages[3].ordinal, -1);
}

TEST_F(ApiSalvageCutFiles, AreNamedWhenItIsTheyThatCannotBeRead) {
    layout = ordersLayout(100);
    make(9);
    damageFrame(6);
    recover(11, 12);
    std::vector<std::filesystem::path> files;  // of each read, where it was made when all files were open
    {
        FaultPlatform platform;
        SalvageSink sink;
        sink.message = [&](const MessageView&, const std::filesystem::path&) {
            files.clear();
            for (const RecordedCall& call : platform.calls()) {
                if (call.call == FileCall::readAt) {
                    files.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(call.descriptor)));
                } else if (call.call == FileCall::open) {
                    std::fill(files.begin(), files.end(), std::filesystem::path());
                }
            }
        };
        salvage(path(), sink);
    }
    std::set<std::filesystem::path> named;
    for (std::size_t i = 0; i < files.size(); ++i) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, static_cast<int>(i) + 1, EIO);
        const Error error = errorOf([&] { salvage(path(), {}); });
        EXPECT_EQ(error.name(), codeName(Code::fileRead)) << error.what();
        if (!files[i].empty()) {
            EXPECT_EQ(error.path(), files[i]) << "read " << i + 1;
            named.insert(files[i]);
        }
    }
    EXPECT_EQ(named, (std::set<std::filesystem::path>{path(), cutFile(plan().frames[5].begin)}));
}

TEST_F(ApiSalvageCutFiles, GiveMessagesThatOthersHaveTakenThePlaceOf) {
    layout = ordersLayout(100);
    make(9);
    damageFrame(4);
    recover(14, 19);  // frames of another length at the places of 4 to 9
    Salvaged salvaged = salvageAll(path());
    std::vector<std::int32_t> ids = salvaged.ids();
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids, (std::vector<std::int32_t>{1, 2, 3, 5, 6, 7, 8, 9, 14, 15, 16, 17, 18, 19})) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 1) << salvaged.text();
    const auto isBefore = [](const Salvaged::Item& left, const Salvaged::Item& right) {
        return left.position < right.position;
    };
    EXPECT_TRUE(std::is_sorted(salvaged.messages.begin(), salvaged.messages.end(), isBefore)) << salvaged.text();
}

TEST_F(ApiSalvageCutFiles, TellOfALostMessageAlsoWhenOneOfItsLengthHasTakenItsPlace) {
    layout = ordersLayout(100);
    make(8);
    damageFrame(4);
    patchFile(path().string(), plan().frames[6].begin, pattern(4, 9));
    // 2 has the length of 4 and 8; the messages stand at the places of the lost ones from now on.
    recover(4, 4);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.result.gaps, 2) << salvaged.text();
    EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{1, 2, 3, 4, 5, 6, 8})) << salvaged.text();
}

TEST_F(ApiSalvageCutFiles, TellOfALostMessageAlsoWhenOthersStandInItsPlaceAndBehindIt) {
    layout = ordersLayout(100);
    make(8);
    damageFrame(4);
    recover(4, 4);
    recover(9, 9);  // message 5 stood there
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.result.gaps, 1) << salvaged.text();
    EXPECT_EQ(salvaged.result.messages, 9) << salvaged.text();
}

TEST_F(ApiSalvageCutFiles, CountMessagesThatStandInSeveralFilesOnce) {
    layout = ordersLayout(4);
    make(30);
    const Bytes bytes = fileBytes();
    const TablePlan places = plan();
    const auto cutAt = [&](std::size_t begin, std::size_t end, const std::string& more = {}) {
        writeFile(cutFile(begin, more).string(), Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                                                       bytes.begin() + static_cast<std::ptrdiff_t>(end)));
    };
    cutAt(places.frames[2].begin, places.frames[9].end);
    cutAt(places.frames[2].begin, places.frames[20].end, "-1");
    cutAt(places.frames[2].begin, places.end, "-2");
    cutAt(places.blocks[3], places.end);
    cutAt(places.footers[2].begin + 17, places.frames[27].begin + 5);
    cutAt(places.blocks[5], places.blocks[5] + 8);
    cutAt(19, places.headerEnd);
    Salvaged salvaged = salvageAll(path());
    std::vector<std::int32_t> ids;
    for (std::int32_t n = 1; n <= 30; ++n) {
        ids.push_back(n);
    }
    EXPECT_EQ(salvaged.ids(), ids) << salvaged.text();
    EXPECT_EQ(salvaged.result.fromCutFiles, 0);
    // The table's own copy is lost from message 2 on: all of it is in the others.
    patchFile(path().string(), places.frames[1].begin, Bytes(places.end - places.frames[1].begin, 0));
    salvaged = salvageAll(path());
    ids.erase(ids.begin() + 1);
    EXPECT_EQ(salvaged.ids(), ids) << salvaged.text();
    EXPECT_EQ(salvaged.result.fromCutFiles, 28);
    // Only the files that are asked for.
    EXPECT_EQ(salvageAll(path(), {.cutFiles = std::vector<std::filesystem::path>{}}).ids(),
              std::vector<std::int32_t>{1});
    std::filesystem::rename(cutFile(places.blocks[3]), directory.file("moved.cut-" + std::to_string(places.blocks[3])));
    salvaged = salvageAll(path(), {.cutFiles = std::vector<std::filesystem::path>{
                                       directory.file("moved.cut-" + std::to_string(places.blocks[3]))}});
    EXPECT_EQ(salvaged.result.messages, 1 + 30 - 12) << salvaged.text();
}

TEST_F(ApiSalvageCutFiles, FillEachOthersGaps) {
    layout = ordersLayout(100);
    make(20);
    const TablePlan places = plan();
    const Bytes bytes = fileBytes();
    const std::size_t begin = places.frames[4].begin;
    Bytes part(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.end());
    Bytes other = part;
    std::fill_n(part.begin() + static_cast<std::ptrdiff_t>(places.frames[8].begin - begin), 10, 0);
    std::fill_n(other.begin() + static_cast<std::ptrdiff_t>(places.frames[12].begin - begin), 10, 0);
    writeFile(cutFile(begin).string(), part);
    writeFile(cutFile(begin, "-1").string(), other);
    std::filesystem::resize_file(path(), begin);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.result.messages, 20) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 0) << salvaged.text();
    // The same damage in both is one gap.
    writeFile(cutFile(begin, "-1").string(), part);
    EXPECT_EQ(salvageAll(path()).result.gaps, 1) << salvaged.text();
}

TEST_F(ApiSalvageCutFiles, FillAGapAtTheEndOfOthersByTheMessageInFrontOfIt) {
    layout = ordersLayout(100);
    make(12);
    const TablePlan places = plan();
    const Bytes bytes = fileBytes();
    const std::size_t begin = places.frames[4].begin;
    Bytes part(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.end());
    Bytes other = part;
    // Nothing stands behind message 12, and of what stands in front of it only message 11 is whole in both.
    std::fill_n(part.end() - 10, 10, 0);
    std::fill_n(other.begin() + static_cast<std::ptrdiff_t>(places.frames[9].begin - begin), 10, 0);
    writeFile(cutFile(begin).string(), part);
    writeFile(cutFile(begin, "-1").string(), other);
    std::filesystem::resize_file(path(), begin);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.result.messages, 12) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 0) << salvaged.text();
}

TEST_F(ApiSalvageCutFiles, ThatBeginWithTheSameDamageHaveOneGapThere) {
    layout = ordersLayout(100);
    make(12);
    const std::size_t begin = plan().frames[4].begin;
    const Bytes bytes = fileBytes();
    Bytes part(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.end());
    std::fill_n(part.begin(), 10, 0);
    writeFile(cutFile(begin).string(), part);
    writeFile(cutFile(begin, "-1").string(), part);
    std::filesystem::resize_file(path(), begin);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.result.messages, 11) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 1) << salvaged.text();
}

TEST_F(ApiSalvageCutFiles, AreRefusedWhenTheirNamesTellNoOffset) {
    make(3);
    writeFile(directory.file("orders.copy"), fileBytes());
    const auto with = [&](const std::string& name) {
        return SalvageOptions{.cutFiles = std::vector<std::filesystem::path>{directory.file(name)}};
    };
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(salvageAll(path(), with("orders.copy"))));
    const Error error = errorOf([&] { static_cast<void>(salvageAll(path(), with("orders.cut-12"))); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.path(), directory.file("orders.cut-12"));
}

TEST_F(ApiSalvageCutFiles, HoldWhateverARecoveryOfRandomDamageHasCut) {
    const std::uint32_t seed = internal::test::testSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    layout = ordersLayout(6);
    make(40);
    const Bytes sound = fileBytes();
    const TablePlan places = plan();
    const int rounds = 400 * internal::test::testEffort();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        Bytes image = sound;
        for (std::size_t i = 1 + random() % 3; i > 0; --i) {
            damageAtRandom(&image, places.headerEnd, &random);
        }
        // A header that was never saved: all blocks are looked at again when the table is opened for writing.
        std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(places.headerEnd) - 72, 8, 0);
        std::filesystem::remove(path());
        writeFile(path().string(), image);
        // A damaged id may be that of another message.
        std::vector<std::int32_t> expected = salvageAll(path()).ids();
        for (int opening = 0; opening < 2; ++opening) {
            const std::int32_t first = 101 + opening * 10;
            const auto last = first + static_cast<std::int32_t>(random() % 9);
            recover(first, last);
            for (std::int32_t id = first; id <= last; ++id) {
                expected.push_back(id);
            }
            const Salvaged after = salvageAll(path());
            std::vector<std::int32_t> ids = after.ids();
            std::sort(ids.begin(), ids.end());
            std::sort(expected.begin(), expected.end());
            EXPECT_EQ(ids, expected) << "round " << round << ", opening " << opening << "\n" << after.text();
        }
        for (const std::filesystem::path& file : cutFilesOf(path())) {
            std::filesystem::remove(file);
        }
    }
}

}  // namespace
}  // namespace tabulo::test
