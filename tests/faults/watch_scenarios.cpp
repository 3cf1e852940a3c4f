// Two message tables watched.
#include "tests/faults/fault_scenario.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/message_takers.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {

namespace {

TableShape shapeOf(const char* name) {
    TableShape shape = smallShape();
    shape.name = name;
    return shape;
}

// Messages of every second uniform id; the third one is larger than a reader's buffer.
std::vector<Message> everySecond(std::int32_t first, std::int32_t count, const TableShape& shape) {
    std::vector<Message> messages;
    for (std::int32_t i = 0; i < count; ++i) {
        messages.push_back(simpleMessage(first + 2 * i, shape));
    }
    messages[2].strings.back() = std::string(17000, 'x');
    return messages;
}

void prepareTables(ScenarioRun& run) {
    static const Bytes odd = unclosedImage(shapeOf("odd"), everySecond(1, 9, shapeOf("odd")));
    static const Bytes even = closedImage(shapeOf("even"), everySecond(2, 6, shapeOf("even")));
    writeFile(run.directory.file("odd"), odd);
    writeFile(run.directory.file("even"), even);
}

// A watch that has failed is started again behind the last message: it may not skip or repeat.
void watchTables(ScenarioRun& run) {
    const MessageTablePtr odd = createTable(run.root(), shapeOf("odd"));
    const MessageTablePtr even = createTable(run.root(), shapeOf("even"));
    if (!run.did(OPEN_FOR_READING, mt_open(odd.get(), OpenMode::read)) ||
        !run.did(OPEN_FOR_READING, mt_open(even.get(), OpenMode::read))) {
        return;
    }
    MessageTable* const tables[] = {odd.get(), even.get()};
    const WatcherPtr watcher(messageWatcher_create(tables, 2));
    watcher->pause = [](std::int64_t) {};
    Answer answer;
    std::int32_t last = 0;
    const auto take = [&](const MessageView& message, std::int32_t tableIndex) {
        answer.push_back(std::to_string(tableIndex) + ": " + lineOf(ownedMessage(message)));
        last = message.metadata.uniformId;
        return true;
    };
    for (int times = 0; times < 2; ++times) {
        const std::int32_t startingIds[] = {last + 1, last + 1};
        const ErrorCode code = messageWatcher_startWatching(watcher.get(), 2, startingIds, watchListenerOf(&take));
        run.did(WATCH, code, answer);
    }
}

void verifyTables(ScenarioRun& run) {
    run.shape = shapeOf("odd");
    expectTableGoesOn(run, everySecond(1, 9, run.shape));
    run.shape = shapeOf("even");
    expectTableGoesOn(run, everySecond(2, 6, run.shape));
}

}  // namespace

std::vector<FaultScenario> watchScenarios() {
    return {{"WatchTwoTables", prepareTables, watchTables, verifyTables}};
}

}  // namespace tabulo::internal::test
