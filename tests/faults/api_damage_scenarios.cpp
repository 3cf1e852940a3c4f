// verify and salvage: of a damaged table, and of one from which a recovery has cut something out.
#include "tabulo/damage.h"
#include "tests/faults/api_steps.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

using Files = std::map<std::string, Bytes>;

// Two closed blocks and an open one; the second message is damaged, and so is the second block's footer.
Files damagedTable() {
    const TableShape shape = smallShape();
    const std::vector<Message> messages = simpleMessages(1, 11, shape);
    Bytes bytes = closedImage(shape, messages);
    const TableMap map = mapOf(shape, messages);
    putU32(&bytes, map.frame(2).end - 4, 7);  // the trailing length disagrees
    putU64(&bytes, map.openBlockStart - 8, 12345);
    return {{shape.name, bytes}};
}

// A table whose recovery has saved two whole messages, behind a damaged one, in a file beside it; it has gone on since.
Files recoveredTable() {
    const TableShape shape = smallShape();
    const TemporaryDirectory directory;
    const std::vector<Message> messages = simpleMessages(1, 4, shape);
    Bytes bytes = unclosedImage(shape, {messages[0], messages[1], messages[2]});
    putU32(&bytes, mapOf(shape, messages).frame(2).end - 4, 7);
    writeFile(directory.file(shape.name), bytes);
    MessageTablePtr table = openTable(directory.root(), OpenMode::write, shape);
    EXPECT_EQ(writeSimpleMessages(table.get(), 5, 9, shape), NO_ERROR);
    EXPECT_EQ(closeTable(table), NO_ERROR);
    return filesIn(directory);
}

template <Files (*make)()>
const Files& madeOnce() {
    static const Files files = make();
    return files;
}

template <Files (*make)()>
void place(ScenarioRun& run) {
    run.shape = smallShape();
    for (const auto& [name, bytes] : madeOnce<make>()) {
        writeFile(run.directory.file(name), bytes);
    }
}

template <Files (*make)()>
void expectUnchanged(ScenarioRun& run) {
    EXPECT_TRUE(filesIn(run.directory) == madeOnce<make>()) << "the files have been changed";
}

std::vector<std::string> pathsOf(const ScenarioRun& run) {
    std::vector<std::string> paths;
    for (const auto& [name, bytes] : filesIn(run.directory)) {
        paths.push_back(run.directory.file(name));
    }
    return paths;
}

void verifies(ScenarioRun& run) {
    apiDid(run, API_WALK, [&](Answer& answer) {
        const VerifyResult result = verify(run.path(), [&](const Finding& finding) {
            answer.push_back(lineOf(static_cast<std::int64_t>(finding.kind)) + " " + lineOf(finding.block) + " " +
                             lineOf(finding.offset) + " " + finding.text + " " + lineOf(finding.intactBefore) + " " +
                             lineOf(finding.intactBehind));
        });
        for (const std::int64_t number : {result.blocks, result.messages, result.bytes, result.damages, result.notes}) {
            answer.push_back(lineOf(number));
        }
        answer.push_back(result.complete ? "complete" : "incomplete");
    });
}

void salvages(ScenarioRun& run) {
    apiDid(run, API_WALK, pathsOf(run), [&](Answer& answer) {
        const auto give = [&](const tabulo::MessageView& message, const std::filesystem::path& file) {
            answer.push_back(file.filename().string() + ": " + lineOf(message));
        };
        const auto tell = [&](const Gap& gap) {
            answer.push_back(gap.file.filename().string() + ": a gap at " + lineOf(gap.offset) + " of " +
                             lineOf(gap.length) + ", behind " + lineOf(gap.uniformIdBefore) + ", before " +
                             lineOf(gap.uniformIdBehind));
        };
        const SalvageResult result = salvage(run.path(), {give, tell});
        for (const std::int64_t number : {result.messages, result.fromCutFiles, result.gaps, result.gapBytes}) {
            answer.push_back(lineOf(number));
        }
        answer.push_back(result.complete ? "complete" : "incomplete");
    });
}

}  // namespace

std::vector<FaultScenario> apiDamageScenarios() {
    return {
        {"ApiVerifyADamagedTable", place<damagedTable>, verifies, expectUnchanged<damagedTable>},
        {"ApiVerifyARecoveredTable", place<recoveredTable>, verifies, expectUnchanged<recoveredTable>},
        {"ApiSalvageADamagedTable", place<damagedTable>, salvages, expectUnchanged<damagedTable>},
        {"ApiSalvageWithACutFile", place<recoveredTable>, salvages, expectUnchanged<recoveredTable>},
    };
}

}  // namespace tabulo::internal::test
