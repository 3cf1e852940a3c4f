// The lines that a watch writes: DEBUG lines to the log file, its start and its end to the warning channel.
#include <algorithm>

#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"
#include "tests/watcher/read_hook.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

constexpr const char* START = "messageWatcher_startWatching";
constexpr const char* FIND = "findNextUniformId";

std::string startLine(const std::string& ids) {
    return "Tabulo/C: Watcher started from uniformIds = [ " + ids + "]";
}
std::string stopLine(std::int32_t lastId) {
    return "Tabulo/C: Watcher asked to stop. Last sent uniformId = " + std::to_string(lastId);
}
std::string errorLine(ErrorCode code, std::int32_t lastId) {
    return "Tabulo/C: Watcher stopped due to error " + std::to_string(code) +
           ". Last sent uniformId = " + std::to_string(lastId);
}
std::string gapLine(std::int32_t previous, std::int32_t next) {
    return debugLine(START, "uniform id gap occured: prevUniformId = " + std::to_string(previous) +
                                ", nextUniformId = " + std::to_string(next));
}
std::string deliveryLine(std::int32_t id, std::int32_t reader) {
    return debugLine(START, "uniformId = " + std::to_string(id) + ", reader src = " + std::to_string(reader) + ".");
}
std::string foundLine(std::int32_t id, std::int32_t reader) {
    return debugLine(FIND, "found nextUniformId = " + std::to_string(id) + " at reader " + std::to_string(reader) +
                               ", error code = 0.");
}
const std::string lookingLine = debugLine(FIND, "looking for nextUniformId...");

class WatcherTrace : public WatcherTest {
  protected:
    // The lines of the watch itself since the mark.
    std::vector<std::string> watchLines() const {
        std::vector<std::string> found;
        for (const std::string& line : log.lines()) {
            if (line.starts_with(debugLine(START, "")) || line.starts_with(debugLine(FIND, ""))) {
                found.push_back(line);
            }
        }
        return found;
    }
    // The gaps and deliveries among the log's lines since the mark.
    std::vector<std::string> steps() const {
        std::vector<std::string> found;
        for (const std::string& line : log.lines()) {
            if (line.starts_with(debugLine(START, "uniform"))) {
                found.push_back(line);
            }
        }
        return found;
    }
    ErrorCode watchTables(const std::vector<MessageTable*>& tables, const std::vector<std::int32_t>& from) {
        const WatcherPtr watcher = watch(tables);
        log.clear();
        warnings.clear();
        return record.run(watcher.get(), from);
    }

    DebugLog log;
    LogCapture warnings;
};

TEST_F(WatcherTrace, OneTableWithTheIds1And2And4) {
    const WatchedTablePtr table = filled("orders", {1, 2, 4});
    ASSERT_EQ(watchTables({table.get()}, {1}), NO_ERROR);
    const std::vector<std::string> lines = watchLines();
    const std::vector<std::string> expected{
        debugLine(START, "Watcher started from uniformIds = [ 1 ]"),
        lookingLine,
        foundLine(1, 0),
        deliveryLine(1, 0),
        lookingLine,
        foundLine(2, 0),
        deliveryLine(2, 0),
        lookingLine,
        foundLine(4, 0),
        gapLine(2, 4),
        lookingLine,
        foundLine(4, 0),
        deliveryLine(4, 0),
        lookingLine,
    };
    ASSERT_EQ(lines.size(), expected.size() + 1) << log.text();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), lines.begin())) << log.text();
    EXPECT_NE(lines.back().find(" at reader 1, error code = "), std::string::npos)
        << "a pass that finds nothing names the number of readers: " << lines.back();
    EXPECT_TRUE(lines.back().starts_with(debugLine(FIND, "found nextUniformId = "))) << lines.back();
}

TEST_F(WatcherTrace, AMessageThatArrivesDuringTheGapPassGoesBeforeTheOneBehindTheGap) {
    const WatchedTablePtr writer = open("one", OpenMode::create);
    const WatchedTablePtr one = open("one", OpenMode::read);
    const WatchedTablePtr two = filled("two", {1, 2, 4});
    bool armed = false;
    // The pass behind message 2 finds nothing new in the first table; it grows before the second one is looked at.
    const ReadHook hook([&](std::size_t bytes) {
        if (armed && bytes == 0) {
            armed = false;
            EXPECT_EQ(storeMessage(writer.get(), 3), NO_ERROR);
        }
    });
    record.onMessage = [&](const Received& received) {
        armed = received.metadata.uniformId == 2;
        return NO_ERROR;
    };
    ASSERT_EQ(watchTables({one.get(), two.get()}, {1, 1}), NO_ERROR);
    EXPECT_EQ(steps(),
              (Events{deliveryLine(1, 1), deliveryLine(2, 1), gapLine(2, 4), deliveryLine(3, 0), deliveryLine(4, 1)}));
    EXPECT_EQ(record.events, (Events{"1@1", "2@1", "3@0", "4@1", "idle"}));
}

TEST_F(WatcherTrace, TheSameIdInTwoTablesIsAGap) {
    const WatchedTablePtr one = filled("one", {5});
    const WatchedTablePtr two = filled("two", {5, 6});
    ASSERT_EQ(watchTables({one.get(), two.get()}, {1, 1}), NO_ERROR);
    EXPECT_EQ(steps(), (Events{deliveryLine(5, 0), gapLine(5, 5), deliveryLine(5, 1), deliveryLine(6, 1)}));
}

TEST_F(WatcherTrace, AnIdBelowTheLastOneIsAGap) {
    const WatchedTablePtr table = filled("orders", {5, 3});
    ASSERT_EQ(watchTables({table.get()}, {1}), NO_ERROR);
    EXPECT_EQ(steps(), (Events{deliveryLine(5, 0), gapLine(5, 3), deliveryLine(3, 0)}));
}

TEST_F(WatcherTrace, AGapIsReportedOnceAlsoWhenTheNextOneFollowsAtOnce) {
    const WatchedTablePtr table = filled("orders", {1, 3, 5});
    ASSERT_EQ(watchTables({table.get()}, {1}), NO_ERROR);
    EXPECT_EQ(steps(),
              (Events{deliveryLine(1, 0), gapLine(1, 3), deliveryLine(3, 0), gapLine(3, 5), deliveryLine(5, 0)}));
}

TEST_F(WatcherTrace, TheFirstMessageOfAWatchIsNoGapAndEachStartForgetsTheLastOne) {
    const WatchedTablePtr table = filled("orders", {7, 8});
    const WatcherPtr watcher = watch({table.get()});
    for (int start = 0; start < 2; ++start) {
        log.clear();
        ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
        EXPECT_EQ(steps(), (Events{deliveryLine(7, 0), deliveryLine(8, 0)})) << "start " << start;
    }
}

TEST_F(WatcherTrace, MessagesThatAreConsumedSilentlyAreTracedAndCountForGaps) {
    const WatchedTablePtr table = filled("orders", {5, 3, 4, 8});
    ASSERT_EQ(watchTables({table.get()}, {5}), NO_ERROR);
    EXPECT_EQ(steps(), (Events{deliveryLine(5, 0), gapLine(5, 3), deliveryLine(3, 0), deliveryLine(4, 0), gapLine(4, 8),
                               deliveryLine(8, 0)}));
    EXPECT_EQ(record.deliveries(), (Events{"5@0", "8@0"}));
}

TEST_F(WatcherTrace, TheStartIsWrittenToBothChannelsWithTheIdsAsGiven) {
    const WatchedTablePtr one = filled("one", {});
    const WatchedTablePtr two = filled("two", {});
    ASSERT_EQ(watchTables({one.get(), two.get()}, {-1, -2147483647, 12}), NO_ERROR);
    EXPECT_EQ(watchLines().at(0), debugLine(START, "Watcher started from uniformIds = [ -1 -2147483647 12 ]"));
    EXPECT_EQ(warnings.all(), (Events{startLine("-1 -2147483647 12 "), stopLine(-1)}));
    EXPECT_EQ(warnings.notes(), Events{}) << "nothing of this is a note";
}

TEST_F(WatcherTrace, AWatcherWithoutTablesWritesAnEmptyList) {
    ASSERT_EQ(watchTables({}, {}), NO_ERROR);
    EXPECT_EQ(watchLines().at(0), debugLine(START, "Watcher started from uniformIds = [ ]"));
    EXPECT_EQ(warnings.warnings(), (Events{startLine(""), stopLine(-1)}));
}

TEST_F(WatcherTrace, TheEndNamesTheLastIdThatWentThroughEvenIfItWasNotDelivered) {
    const WatchedTablePtr table = filled("orders", {5, 3});
    ASSERT_EQ(watchTables({table.get()}, {5}), NO_ERROR);
    EXPECT_EQ(record.deliveries(), Events{"5@0"});
    EXPECT_EQ(warnings.warnings(), (Events{startLine("5 "), stopLine(3)}));
}

TEST_F(WatcherTrace, AGapPassDoesNotForgetTheIdOfTheEndLine) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    ASSERT_EQ(storeMessage(writer.get(), 2), NO_ERROR);
    ASSERT_EQ(storeMessage(writer.get(), 9), NO_ERROR);
    record.onMessage = [&](const Received& received) {
        return received.metadata.uniformId == 9 ? JNI_ERROR : NO_ERROR;
    };
    ASSERT_EQ(watchTables({writer.get()}, {1}), JNI_ERROR);
    EXPECT_EQ(warnings.warnings(), (Events{startLine("1 "), errorLine(JNI_ERROR, 9)}));
}

TEST_F(WatcherTrace, EachStartForgetsTheIdOfTheEndLine) {
    const WatchedTablePtr table = filled("orders", {7});
    const WatcherPtr watcher = watch({table.get()});
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    warnings.clear();
    ASSERT_EQ(record.run(watcher.get(), {8}), NO_ERROR);
    EXPECT_EQ(warnings.warnings(), (Events{startLine("8 "), stopLine(-1)}));
}

TEST_F(WatcherTrace, AnErrorAtTheStartAlsoWritesBothLines) {
    const WatchedTablePtr one = filled("one", {1});
    const WatchedTablePtr two = filled("two", {1});
    ASSERT_EQ(watchTables({one.get(), two.get()}, {1}), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(warnings.warnings(), (Events{startLine("1 "), errorLine(INDEX_OUT_OF_BOUNDS_ERROR, -1)}));
    EXPECT_EQ(watchLines(), Events{debugLine(START, "Watcher started from uniformIds = [ 1 ]")})
        << "nothing is looked for";
}

TEST_F(WatcherTrace, TheStartLineIsOneLinePieceByPiece) {
    const WatchedTablePtr table = filled("orders", {});
    ASSERT_EQ(watchTables({table.get()}, {4}), NO_ERROR);
    std::string text;
    for (const LogWrite& write : warnings.writes()) {
        EXPECT_EQ(write.channel, "warning") << write.text;
        text += write.text;
    }
    EXPECT_EQ(text, startLine("4 ") + "\n" + stopLine(-1) + "\n");
}

}  // namespace
}  // namespace tabulo::internal::test
