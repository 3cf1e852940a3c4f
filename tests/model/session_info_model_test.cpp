// Random operations on a session info table: after each of them the writer and all readers answer what a plain map of
// the values answers.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <filesystem>
#include <map>
#include <random>

#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/debug_log.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr int TABLES = 30;
constexpr int OPERATIONS_PER_TABLE = 200;
constexpr int KILLED = 256 + SIGKILL;

class SessionRun {
  public:
    SessionRun(std::mt19937* random, const std::string& root) : random_(random), root_(root), path_(root + "session") {
        const int count = 1 + below(MAX_SESSION_INFO_TAGS);
        while (tags_.size() < static_cast<std::size_t>(count)) {
            const auto tag = static_cast<std::int32_t>(below(4) == 0 ? below(1 << 30) : below(40));
            if (std::find(tags_.begin(), tags_.end(), tag) == tags_.end()) {
                tags_.push_back(tag);
            }
        }
        openWriter();
    }

    const char* perform() {
        const int ticket = below(100);
        if (writer_ == nullptr) {
            if (ticket < 60) {
                openWriter();
                return "open the writer";
            }
            if (ticket < 80) {
                writeThroughReader();
                return "write through a table opened for reading";
            }
            writeInKilledProcess();
            return "write in a process that is killed";
        }
        if (ticket < 45) {
            write();
            return "write";
        }
        if (ticket < 55) {
            refuse();
            return "a refused call";
        }
        if (ticket < 58) {
            EXPECT_EQ(si_drop(writer_.get()), NO_ERROR);
            clear();
            return "drop";
        }
        if (ticket < 68) {
            openReader();
            return "open a reader";
        }
        if (ticket < 75) {
            closeReader();
            return "close a reader";
        }
        if (ticket < 83) {
            EXPECT_EQ(si_init(writer_.get(), OpenMode::write), NO_ERROR);
            return "open the writer again, the same object";
        }
        if (ticket < 90) {
            crashWithCut();
            return "abandon the writer and cut the file";
        }
        writer_.reset();
        return "abandon the writer";
    }

    void compare() {
        if (writer_ != nullptr) {
            compareTable(writer_.get(), "the writer");
        }
        for (const SessionInfoTablePtr& reader : readers_) {
            compareTable(reader.get(), "a reader");
        }
        Values inOrder;
        for (const std::int32_t tag : tags_) {
            inOrder.push_back(values_[tag]);
        }
        const Bytes file = readFile(path_);
        const bool nothingWritten = file.size() == headerSizeFor(tags_.size());
        if (nothingWritten) {
            EXPECT_TRUE(std::all_of(inOrder.begin(), inOrder.end(), [](std::int64_t value) { return value == 0; }));
        } else {
            EXPECT_EQ(difference(file, sessionFile(tags_, inOrder)), "");
        }
    }

  private:
    int below(int count) { return static_cast<int>((*random_)() % static_cast<unsigned>(count)); }

    std::int64_t someValue() {
        static constexpr std::int64_t ends[] = {std::numeric_limits<std::int64_t>::min(),
                                                std::numeric_limits<std::int64_t>::max(), 0, -1, 1};
        const auto high = static_cast<std::uint64_t>((*random_)()) << 32;
        return below(4) == 0 ? ends[below(5)] : static_cast<std::int64_t>(high | (*random_)());
    }

    // Tags of the table in any order, some of them twice, and a value for each.
    void draw(Tags* tags, Values* values) {
        for (int k = below(static_cast<int>(tags_.size()) + 3); k > 0; --k) {
            tags->push_back(tags_[(*random_)() % tags_.size()]);
            values->push_back(someValue());
        }
    }

    void take(const Tags& tags, const Values& values) {
        for (std::size_t i = 0; i < tags.size(); ++i) {
            values_[tags[i]] = values[i];
        }
    }

    void clear() { values_.clear(); }

    // Some of the tags, in any order: what a host may configure for a table that has more.
    Tags someTags() {
        Tags tags = tags_;
        std::shuffle(tags.begin(), tags.end(), *random_);
        tags.resize(1 + (*random_)() % tags.size());
        return tags;
    }

    void openWriter() {
        const bool create = !std::filesystem::exists(path_) || below(20) == 0;
        writer_ = openSessionTable(root_, create ? OpenMode::create : OpenMode::write, create ? tags_ : someTags());
        if (create) {
            clear();
            readers_.clear();  // they keep the last values that they saw until the first write to the new file
        }
    }

    void openReader() {
        if (readers_.size() < 4) {
            readers_.push_back(openSessionTable(root_, OpenMode::read, someTags()));
        }
    }

    void closeReader() {
        if (!readers_.empty()) {
            readers_.erase(readers_.begin() + below(static_cast<int>(readers_.size())));
        }
    }

    void write() {
        Tags tags;
        Values values;
        draw(&tags, &values);
        EXPECT_EQ(writeValues(writer_.get(), tags, values), NO_ERROR);
        take(tags, values);
    }

    void refuse() {
        Tags tags;
        Values values;
        draw(&tags, &values);
        const auto unknown = static_cast<std::int32_t>(-1 - below(100));
        switch (below(5)) {
            case 0:
                tags.insert(tags.begin() + below(static_cast<int>(tags.size()) + 1), unknown);
                values.push_back(0);
                EXPECT_EQ(writeValues(writer_.get(), tags, values), WRONG_PARAMETER_ERROR);
                break;
            case 1:
                tags.insert(tags.begin() + below(static_cast<int>(tags.size()) + 1), unknown);
                EXPECT_EQ(readCode(writer_.get(), tags), NO_DATA_ERROR);
                break;
            case 2:
                EXPECT_EQ(si_write(writer_.get(), -1 - below(5), tags.data(), values.data()), WRONG_PARAMETER_ERROR);
                break;
            case 3:
                EXPECT_EQ(si_write(writer_.get(), 1, nullptr, nullptr), NULL_POINTER_ERROR);
                break;
            default: {
                // The lock is the writer's.
                const SessionInfoTablePtr reader = openSessionTable(root_, OpenMode::read, tags_);
                EXPECT_EQ(writeValues(reader.get(), tags, values), FILE_OPEN_ERROR);
                compareTable(reader.get(), "a reader whose write was refused");
                break;
            }
        }
    }

    void writeThroughReader() {
        const SessionInfoTablePtr reader = openSessionTable(root_, OpenMode::read, tags_);
        for (int k = below(3); k >= 0; --k) {
            Tags tags;
            Values values;
            draw(&tags, &values);
            EXPECT_EQ(writeValues(reader.get(), tags, values), NO_ERROR);
            take(tags, values);
            compareTable(reader.get(), "a table opened for reading and written");
        }
    }

    void writeInKilledProcess() {
        Tags tags;
        Values values;
        draw(&tags, &values);
        ChildProcess child([&] {
            const SessionInfoTablePtr table = createSessionTable(root_, tags_);
            const bool written =
                si_init(table.get(), OpenMode::write) == NO_ERROR &&
                si_write(table.get(), static_cast<std::int32_t>(tags.size()), tags.data(), values.data()) == NO_ERROR;
            return written ? std::raise(SIGKILL) : 1;
        });
        ASSERT_EQ(child.wait(), KILLED);
        take(tags, values);
    }

    // What is left of the value area keeps its whole values; the others are 0.
    void crashWithCut() {
        writer_.reset();
        const std::size_t header = headerSizeFor(tags_.size());
        const std::size_t size = std::filesystem::file_size(path_);
        const std::size_t cut = header + (*random_)() % (size - header + 1);
        std::filesystem::resize_file(path_, cut);
        for (std::size_t i = (cut - header) / 8; i < tags_.size(); ++i) {
            values_.erase(tags_[i]);
        }
        openWriter();
    }

    void compareTable(SessionInfoTable* table, const char* who) {
        SCOPED_TRACE(who);
        Tags asked;
        Values expected;
        for (const std::int32_t tag : tags_) {
            if (below(4) != 0) {
                asked.insert(asked.begin() + below(static_cast<int>(asked.size()) + 1), tag);
            }
        }
        for (const std::int32_t tag : asked) {
            expected.push_back(values_[tag]);
        }
        EXPECT_EQ(readValues(table, asked), expected) << "tags " << ::testing::PrintToString(asked);
        EXPECT_EQ(tagsOf(table), tags_) << "the file's own list of tags";
    }

    std::mt19937* random_;
    std::string root_;
    std::string path_;
    Tags tags_;  // in the file's order
    std::map<std::int32_t, std::int64_t> values_;
    SessionInfoTablePtr writer_;
    std::vector<SessionInfoTablePtr> readers_;
};

TEST(SessionInfoModel, EveryOperationLeavesTheValuesThatAPlainMapHolds) {
    LogCapture log;
    const DebugLog debugLog;
    std::mt19937 random(testSeed());
    const std::int64_t count = std::int64_t{TABLES} * testEffort();
    std::int64_t number = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        const TemporaryDirectory directory;
        SessionRun run(&random, directory.root());
        std::deque<std::string> last;
        for (int i = 0; i < OPERATIONS_PER_TABLE; ++i) {
            number += 1;
            last.emplace_back(run.perform());
            last.erase(last.begin(), last.begin() + (last.size() > 10 ? 1 : 0));
            SCOPED_TRACE("operation " + std::to_string(number) + "; the last ones were " +
                         ::testing::PrintToString(last));
            run.compare();
            ASSERT_FALSE(HasFailure()) << "the run ends with operation " << number << ", " << last.back();
        }
        log.clear();
    }
    reportFigure("model", "operations", number);
    std::filesystem::remove(debugLog.path());
}

}  // namespace
}  // namespace tabulo::internal::test
