// What a Writer tells when the system refuses its calls, and which commits it makes.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "tabulo/writer.h"
#include "tests/api/api_test.h"
#include "tests/support/fault_platform.h"

namespace tabulo::test {
namespace {

using internal::test::FaultPlatform;
using internal::test::FileCall;

class ApiWriterFailure : public TableTest {
  protected:
    void SetUp() override {
        writer.emplace(Writer::create(path(), layout));
        append(1, 2);
    }

    void append(std::int32_t first, std::int32_t last) {
        for (std::int32_t n = first; n <= last; ++n) {
            writer->append(SimpleMessage(n).message);
        }
    }

    std::optional<Writer> writer;
};

TEST_F(ApiWriterFailure, AnAppendThatTheSystemRefusesStoresNothingAndTellsWhy) {
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    const Error error = errorOf([&] { append(3, 3); });
    EXPECT_EQ(error.code(), Code::fileWrite) << error.what();
    EXPECT_EQ(error.systemText(), "No space left on device");
    EXPECT_EQ(error.path(), path());
    EXPECT_EQ(error.stored(), 0);
    ASSERT_EQ(error.warnings().size(), 1u);
    EXPECT_EQ(error.warnings()[0],
              "Tabulo/C WARNING: mfr_writeMessage(): Replica 0 closed due to file write error: I/O error: unable to "
              "write to a file");
    EXPECT_TABULO_ERROR(fileWrite, append(4, 4));
    EXPECT_TABULO_ERROR(masterInactive, writer->drop());
    EXPECT_TABULO_ERROR(masterInactive, writer->commit());
    writer->close();
    EXPECT_EQ(inspect(path()).messageCount, 2);
}

TEST_F(ApiWriterFailure, AMessageWhoseHeaderAloneCouldNotBeSavedCountsAsStored) {
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 3, EIO);  // the frame with its footer, the length word, the tail
    const Error error = errorOf([&] { append(3, 3); });
    EXPECT_EQ(error.stored(), 1);
    EXPECT_EQ(error.systemText(), "Input/output error");
    writer->close();
    writer.emplace(Writer::open(path()));
    EXPECT_EQ(inspect(path()).messageCount, 3);
    EXPECT_EQ(inspect(path()).lastUniformId, 3);
}

TEST_F(ApiWriterFailure, AMessageWhoseLengthWordCouldNotBeWrittenIsNotStored) {
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 2, EIO);
    const Error error = errorOf([&] { append(3, 3); });
    EXPECT_EQ(error.stored(), 0);
    EXPECT_EQ(inspect(path()).messageCount, 2);
}

TEST_F(ApiWriterFailure, ACloseThatCannotSaveTheHeaderSaysSoAndClosesAllTheSame) {
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 1, EIO);
    EXPECT_TABULO_ERROR(fileFlush, writer->close());
    EXPECT_FALSE(writer->isOpen());
    EXPECT_EQ(Writer::open(path()).end().block, inspect(path()).headerSize);
}

TEST_F(ApiWriterFailure, ACloseThatTheSystemRefusesSaysSo) {
    FaultPlatform platform;
    platform.failNth(FileCall::close, 1, EIO);
    const Error error = errorOf([&] { writer->close(); });
    EXPECT_EQ(error.code(), Code::systemFile);
    EXPECT_EQ(error.systemText(), "Input/output error");
    writer.emplace(Writer::open(path()));
    EXPECT_TRUE(writer->warnings().empty()) << "the header was not saved";
}

TEST_F(ApiWriterFailure, ACommitThatTheSystemRefusesSaysSoAndTheNextOneIsMade) {
    FaultPlatform platform;
    platform.failNth(FileCall::sync, 1, EIO);
    const Error error = errorOf([&] { writer->commit(); });
    EXPECT_EQ(error.code(), Code::fileFlush);
    EXPECT_EQ(error.systemText(), "Input/output error");
    writer->commit();
    EXPECT_EQ(platform.count(FileCall::sync), 2);
    append(3, 3);
}

TEST_F(ApiWriterFailure, ANameThatCouldNotBeCommittedIsCommittedByTheNextOne) {
    FaultPlatform platform;
    platform.failNth(FileCall::syncDirectory, 1, EIO);
    EXPECT_TABULO_ERROR(fileFlush, writer->commit());
    writer->commit();
    writer->commit();
    EXPECT_EQ(platform.count(FileCall::syncDirectory), 2);
}

TEST_F(ApiWriterFailure, ADropThatTheSystemRefusesKeepsTheMessages) {
    FaultPlatform platform;
    platform.failNth(FileCall::truncate, 1, EACCES);
    const Error error = errorOf([&] { writer->drop(); });
    EXPECT_EQ(error.code(), Code::fileTruncate);
    EXPECT_EQ(error.systemText(), "Permission denied");
    append(3, 3);
    EXPECT_EQ(inspect(path()).messageCount, 3);
}

TEST_F(ApiWriterFailure, AnOpenThatFailsLaterDoesNotTellOfTheFileThatWasMissingFirst) {
    FaultPlatform platform;
    platform.failNth(FileCall::lock, 1, EWOULDBLOCK);
    const Error error = errorOf([&] { static_cast<void>(Writer::openOrCreate(directory.file("new"), layout)); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.systemText(), "Resource temporarily unavailable");
}

class ApiSyncPolicyInForce : public TableTest {
  protected:
    ~ApiSyncPolicyInForce() override { setSyncPolicy(SyncPolicy::off()); }

    // The appends of `count` behind which a commit was made, with the clock standing still but for `step`.
    std::vector<int> commits(const SyncPolicy& policy, int count, std::int64_t step = 0) {
        layout = ordersLayout(1000);
        Writer writer = Writer::create(path(), layout);
        FaultPlatform platform;
        platform.setNow(1000);
        setSyncPolicy(policy);
        writer.append(SimpleMessage(1).message);  // the first commit for a policy with a time is at once
        std::vector<int> found;
        for (int n = 1; n <= count; ++n) {
            platform.setNow(1000 + n * step);
            const int before = platform.count(FileCall::sync);
            writer.append(SimpleMessage(n).message);
            if (platform.count(FileCall::sync) > before) {
                found.push_back(n);
            }
        }
        return found;
    }
};

TEST_F(ApiSyncPolicyInForce, OffCommitsNothing) {
    EXPECT_EQ(commits(SyncPolicy::off(), 5), std::vector<int>{});
}

TEST_F(ApiSyncPolicyInForce, AlwaysCommitsEveryAppend) {
    EXPECT_EQ(commits(SyncPolicy::always(), 4), (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(ApiSyncPolicyInForce, EveryTimeCommitsInTheFirstAppendBehindIt) {
    EXPECT_EQ(commits(SyncPolicy::every(std::chrono::seconds(3)), 7), std::vector<int>{});
    std::filesystem::remove(path());
    EXPECT_EQ(commits(SyncPolicy::every(std::chrono::seconds(3)), 7, 1), (std::vector<int>{3, 6}));
}

TEST_F(ApiSyncPolicyInForce, AfterANumberOfAppendsCommitsAtTheLatestThen) {
    for (const std::int32_t number : {1, 2, 3, 4, 7, 10}) {
        std::filesystem::remove(path());
        const std::vector<int> found = commits(SyncPolicy::after(number), 30);
        ASSERT_FALSE(found.empty()) << number;
        int last = 0;
        for (const int n : found) {
            EXPECT_LE(n - last, number) << "appends without a commit";
            EXPECT_TRUE(number == 1 || n - last > 1 || last == 0) << "a commit at every append";
            last = n;
        }
    }
}

}  // namespace
}  // namespace tabulo::test
