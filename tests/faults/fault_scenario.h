// Scenarios: what a host does with tables, told step by step, so that a driver can repeat it under every fault.
//
// A scenario prepares files undisturbed, acts while the fault is in force, and verifies when the fault is gone. It runs
// all its steps to the end whatever they answer, so that the steps of two runs can be compared one by one.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "messagetable/message_table.h"
#include "tests/faults/operation.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/bytes.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

// The values of a session info table, by slot.
using Values = std::vector<std::int64_t>;

// What an operation delivered, in its order: messages, values.
using Answer = std::vector<std::string>;

struct Step {
    const Operation* operation;
    ErrorCode code;
    Answer answer;
    // The system's words in the Error of an operation of the public API that failed.
    std::optional<std::string> systemText = {};
};

// One run of a scenario, in a directory of its own.
struct ScenarioRun {
    struct Written {
        Message message;
        bool acknowledged;
        bool mayBeThere = true;  // when it was not acknowledged
    };
    struct ValuesWritten {
        Values values;
        bool acknowledged;
    };

    TemporaryDirectory directory;
    TableShape shape;
    std::vector<Step> steps;
    std::vector<Written> written;               // messages, in the order in which they were given to the table
    std::vector<ValuesWritten> sessionWritten;  // as above
    bool removalsFail = false;                  // the fault hits these too
    bool truncatesFail = false;                 // and these, behind others

    std::string path() const { return directory.file(shape.name); }
    std::string root() const { return directory.root(); }
    // Records what an operation came to; true for NO_ERROR.
    bool did(const Operation& operation, ErrorCode code, Answer answer = {});
    // Writes the simple messages `first` to `last`, each whatever became of the one before.
    void write(MessageTable* table, std::int32_t first, std::int32_t last);
};

using ScenarioStep = std::function<void(ScenarioRun&)>;

struct FaultScenario {
    std::string name;  // letters and digits: it becomes part of a test's name
    ScenarioStep prepare;
    ScenarioStep act;
    ScenarioStep verify;
};
inline void PrintTo(const FaultScenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

// Small tables: four messages a block; a footer that fits into the stream's buffer, or one that goes to the file past
// it.
TableShape smallShape();
TableShape largeFooterShape();

// A message in one line.
std::string lineOf(const Message& message);
Answer linesOf(const std::vector<Message>& messages);

// The files of a directory by name.
std::map<std::string, Bytes> filesIn(const TemporaryDirectory& directory);

// The bytes of a table file, made by the library once, when they are first asked for. Copies share them.
class TableImage {
  public:
    TableImage(const TableShape& shape, std::function<Bytes(const TableShape&)> make)
        : shared_(std::make_shared<Shared>(Shared{shape, std::move(make), {}})) {}

    const Bytes& bytes() const;
    // Gives the run the shape and the file.
    void place(ScenarioRun& run) const;

  private:
    struct Shared {
        TableShape shape;
        std::function<Bytes(const TableShape&)> make;
        Bytes bytes;
    };
    std::shared_ptr<Shared> shared_;
};

// The step that places it.
ScenarioStep placed(const TableImage& image);

// Expects that the table opens for writing and holds `base`, then every acknowledged message, then goes on: five more
// messages, a close, and a reader that finds everything in both directions.
void expectTableGoesOn(ScenarioRun& run, const std::vector<Message>& base);

// Expects that the table opens for writing and holds one of each value's possible contents: that of the last
// acknowledged write or of a later one that failed; before the first, the stored one. Then writes on and reads.
ScenarioStep sessionGoesOnWith(const Values& stored);
// Where a run keeps its session info table.
std::string sessionPath(const ScenarioRun& run);
// Places the file of a session info table with the values 11 to 16, with `bytes` more (or less) at its end.
ScenarioStep sessionFile(std::ptrdiff_t bytes);

// The table of scenarios.
std::vector<FaultScenario> lifecycleScenarios();
std::vector<FaultScenario> recoveryScenarios();
std::vector<FaultScenario> readingScenarios();
std::vector<FaultScenario> watchScenarios();
std::vector<FaultScenario> sessionScenarios();
std::vector<FaultScenario> apiReadingScenarios();
std::vector<FaultScenario> apiWritingScenarios();
std::vector<FaultScenario> apiFollowingScenarios();
std::vector<FaultScenario> apiDamageScenarios();

}  // namespace tabulo::internal::test
