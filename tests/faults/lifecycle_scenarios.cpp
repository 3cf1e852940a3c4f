// Message tables created, filled, closed, reopened, recovered and dropped.
#include <algorithm>

#include "tests/faults/fault_scenario.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

ScenarioStep emptyDirectory(const TableShape& shape) {
    return [shape](ScenarioRun& run) { run.shape = shape; };
}

// A table of the simple messages 1 to `last` that was closed, or left open.
ScenarioStep closedTable(const TableShape& shape, std::int32_t last) {
    return placed({shape, [last](const TableShape& s) { return closedImage(s, simpleMessages(1, last, s)); }});
}

ScenarioStep unclosedTable(const TableShape& shape, std::int32_t last) {
    return placed({shape, [last](const TableShape& s) { return unclosedImage(s, simpleMessages(1, last, s)); }});
}

// Opens the table in a mode, writes the simple messages `first` to `last` and closes it.
ScenarioStep opensAndWrites(const Operation& opening, OpenMode mode, std::int32_t first, std::int32_t last) {
    return [&opening, mode, first, last](ScenarioRun& run) {
        const MessageTablePtr table = createTable(run.root(), run.shape);
        if (run.did(opening, mt_open(table.get(), mode))) {
            run.write(table.get(), first, last);
            run.did(SAVE_TAIL, mt_close(table.get()));
        }
    };
}

// The table goes on behind the simple messages 1 to `last`.
ScenarioStep goesOnBehind(std::int32_t last) {
    return [last](ScenarioRun& run) { expectTableGoesOn(run, simpleMessages(1, last, run.shape)); };
}

bool succeeded(const ScenarioRun& run, const Operation& operation) {
    return std::any_of(run.steps.begin(), run.steps.end(), [&operation](const Step& step) {
        return step.operation == &operation && step.code == NO_ERROR;
    });
}

// A table that was to be emptied by `operation`: without its success it may still hold all of its messages, not a part.
ScenarioStep goesOnEmptied(const Operation& operation, std::int32_t last) {
    return [&operation, last](ScenarioRun& run) {
        std::vector<Message> base;
        if (!succeeded(run, operation)) {
            const MessageTablePtr table = openTable(run.root(), OpenMode::write, run.shape);
            const std::vector<Message> there = table == nullptr ? base : readAll(table.get()).messages;
            base = there.empty() ? base : simpleMessages(1, last, run.shape);
        }
        expectTableGoesOn(run, base);
    };
}

void drops(ScenarioRun& run) {
    const MessageTablePtr table = createTable(run.root(), run.shape);
    if (run.did(OPEN_FOR_WRITING, mt_open(table.get(), OpenMode::write)) && run.did(DROP, mt_drop(table.get()))) {
        run.write(table.get(), 51, 52);
        run.did(SAVE_TAIL, mt_close(table.get()));
    }
}

// Bytes that recovery cuts are in a file beside the table. An incomplete copy is removed again, where that is possible;
// later copies are of recoveries that had begun to write and were repeated.
void expectSaved(const ScenarioRun& run, std::size_t offset, const Bytes& saved) {
    bool whole = false;
    const std::string name = run.shape.name + ".cut-" + std::to_string(offset);
    for (const auto& [file, bytes] : filesIn(run.directory)) {
        if (file == run.shape.name) {
            continue;
        }
        EXPECT_TRUE(file == name || file.rfind(name + "-", 0) == 0) << "an unexpected file: " << file;
        EXPECT_TRUE(bytes.size() == saved.size() || run.removalsFail) << "an incomplete copy stays: " << file;
        whole = whole || bytes == saved;
    }
    EXPECT_TRUE(whole) << "what recovery cut is not saved";
}

// A table of three messages, the second of which is damaged.
Bytes damagedFrame(const TableShape& shape) {
    const std::vector<Message> messages = simpleMessages(1, 3, shape);
    Bytes bytes = unclosedImage(shape, messages);
    putU32(&bytes, mapOf(shape, messages).frame(2).end - 4, 7);  // the trailing length disagrees
    return bytes;
}

void expectDamagedFrameIsSaved(ScenarioRun& run) {
    const Bytes damaged = damagedFrame(run.shape);
    const std::size_t cut = mapOf(run.shape, simpleMessages(1, 3, run.shape)).frame(1).end;
    expectTableGoesOn(run, simpleMessages(1, 1, run.shape));
    expectSaved(run, cut, slice(damaged, cut, damaged.size()));
}

// A table of one closed block whose footer is overwritten: its frames are all there.
Bytes damagedFooter(const TableShape& shape) {
    Bytes bytes = closedImage(shape, simpleMessages(1, 4, shape));
    std::fill(bytes.end() - 1000, bytes.end(), std::uint8_t{0x55});
    return bytes;
}

void expectDamagedFooterIsSaved(ScenarioRun& run) {
    const Bytes damaged = damagedFooter(run.shape);
    const std::vector<Message> messages = simpleMessages(1, 4, run.shape);
    expectTableGoesOn(run, messages);
    const std::size_t footer = mapOf(run.shape, messages).frame(4).end;
    expectSaved(run, footer, slice(damaged, footer, damaged.size()));
}

Bytes cutHeaderImage(const TableShape& shape) {
    return cutAt(closedImage(shape, {}), 60);
}

}  // namespace

std::vector<FaultScenario> lifecycleScenarios() {
    const TableShape small = smallShape();
    const TableShape large = largeFooterShape();
    return {
        {"CreateATable", emptyDirectory(small), opensAndWrites(CREATE, OpenMode::create, 1, 1), goesOnBehind(0)},
        {"OpenAMissingTable", emptyDirectory(small), opensAndWrites(CREATE, OpenMode::write, 1, 1), goesOnBehind(0)},
        {"CreateOverATable", closedTable(small, 6), opensAndWrites(CREATE, OpenMode::create, 51, 52),
         goesOnEmptied(CREATE, 6)},
        {"WriteAcrossTwoBlocks", closedTable(small, 0), opensAndWrites(OPEN_FOR_WRITING, OpenMode::write, 1, 10),
         goesOnBehind(0)},
        {"WriteAcrossTwoBlocksWithLargeFooters", closedTable(large, 0),
         opensAndWrites(OPEN_FOR_WRITING, OpenMode::write, 1, 10), goesOnBehind(0)},
        {"ReopenAndWrite", closedTable(small, 6), opensAndWrites(OPEN_FOR_WRITING, OpenMode::write, 7, 9),
         goesOnBehind(6)},
        {"ReopenBehindAClosedBlock", closedTable(large, 8), opensAndWrites(OPEN_FOR_WRITING, OpenMode::write, 9, 9),
         goesOnBehind(8)},
        {"DropATable", closedTable(small, 6), drops, goesOnEmptied(DROP, 6)},
    };
}

std::vector<FaultScenario> recoveryScenarios() {
    const TableShape small = smallShape();
    const auto recovers = opensAndWrites(OPEN_FOR_WRITING, OpenMode::write, 51, 52);
    const auto cutFrame = [](const TableShape& shape) {
        const Bytes bytes = unclosedImage(shape, simpleMessages(1, 7, shape));
        return cutAt(bytes, bytes.size() - 10);
    };
    const auto footerless = [](const TableShape& shape) { return footerlessImage(shape, simpleMessages(1, 8, shape)); };
    const auto cutFooter = [](const TableShape& shape) {
        const Bytes bytes = unclosedImage(shape, simpleMessages(1, 8, shape));
        Bytes cut = cutAt(bytes, bytes.size() - 100);
        putU64(&cut, mapOf(shape, simpleMessages(1, 8, shape)).blockStarts.at(1), 0);
        return cut;
    };
    return {
        {"RecoverATableThatWasNotClosed", unclosedTable(small, 6), recovers, goesOnBehind(6)},
        {"RecoverACutFrame", placed({small, cutFrame}), recovers, goesOnBehind(6)},
        {"RecoverAMissingFooter", placed({small, footerless}), recovers, goesOnBehind(8)},
        {"RecoverACutFooter", placed({small, cutFooter}), recovers, goesOnBehind(8)},
        {"RecoverAMissingFooterOfLargeBlocks", placed({largeFooterShape(), footerless}), recovers, goesOnBehind(8)},
        {"RecoverGarbageBehindDamage", placed({small, damagedFrame}), recovers, expectDamagedFrameIsSaved},
        {"RecoverADamagedFooter", placed({small, damagedFooter}), recovers, expectDamagedFooterIsSaved},
        {"RecoverACutHeader", placed({small, cutHeaderImage}), recovers, goesOnBehind(0)},
    };
}

}  // namespace tabulo::internal::test
