// Two message tables watched.
#include "tests/faults/fault_scenario.h"
#include "tests/messagetable/table_image.h"
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

struct Watch {
    Answer answer;
    std::int32_t last = 0;
};

ErrorCode take(std::int32_t* stop, void* context, const MessageMetadata* metadata, const StringField* strings,
               std::int32_t stringCount, const NumericValue* numbers, std::int32_t numberCount, std::int32_t reader) {
    auto* watch = static_cast<Watch*>(context);
    if (metadata == nullptr) {
        *stop = 1;
        return NO_ERROR;
    }
    Message message;
    message.metadata = *metadata;
    for (std::int32_t i = 0; i < stringCount; ++i) {
        message.strings.push_back(strings[i].length == 0 ? std::nullopt
                                                         : std::optional(std::string(stringField_bytes(strings[i]))));
    }
    message.numbers.assign(numbers, numbers + numberCount);
    watch->answer.push_back(std::to_string(reader) + ": " + lineOf(message));
    watch->last = metadata->uniformId;
    return NO_ERROR;
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
    Watch watch;
    for (int times = 0; times < 2; ++times) {
        const std::int32_t startingIds[] = {watch.last + 1, watch.last + 1};
        const ErrorCode code = messageWatcher_startWatching(watcher.get(), 2, startingIds, &watch, take);
        run.did(WATCH, code, watch.answer);
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
