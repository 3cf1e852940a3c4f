// Session info tables created, written, read and recovered.
#include <algorithm>

#include "core/handle.h"
#include "sessioninfo/session_info_table.h"
#include "tests/faults/fault_scenario.h"

namespace tabulo::internal::test {

namespace {

using SessionInfoTablePtr = Handle<SessionInfoTable, si_destroy>;

constexpr std::int32_t TAGS[] = {2, 1, 3, 4, 5, 6};  // of a configuration that names none
constexpr std::int32_t TAG_COUNT = 6;
const Values STORED = {11, 12, 13, 14, 15, 16};
const Values LATER = {21, 22, 23, 24, 25, 26};
const Values LAST = {31, 32, 33, 34, 35, 36};
const Values ZEROS = {0, 0, 0, 0, 0, 0};

SessionInfoTablePtr createSessionTable(const std::string& root) {
    KSVTboTableConfig* config = tableConfig_create("session", 1);
    EXPECT_EQ(tableConfig_setPath(config, 0, root.c_str()), NO_ERROR);
    return SessionInfoTablePtr(si_create(config));
}

SessionInfoTablePtr openSessionTable(const std::string& root, OpenMode mode) {
    SessionInfoTablePtr table = createSessionTable(root);
    const ErrorCode code = si_init(table.get(), mode);
    EXPECT_EQ(code, NO_ERROR) << "opening the session table in mode " << openMode_number(mode) << ": "
                              << getErrorMessage(code);
    return code == NO_ERROR ? std::move(table) : nullptr;
}

ErrorCode writeValues(SessionInfoTable* table, const Values& values) {
    return si_write(table, TAG_COUNT, TAGS, values.data());
}

Values readValues(SessionInfoTable* table) {
    Values values(TAG_COUNT);
    EXPECT_EQ(si_read(table, TAG_COUNT, TAGS, values.data()), NO_ERROR);
    return values;
}

void noFile(ScenarioRun&) {
}

void write(ScenarioRun& run, SessionInfoTable* table, const Values& values) {
    const bool acknowledged = run.did(SESSION_WRITE, writeValues(table, values));
    run.sessionWritten.push_back({values, acknowledged});
}

void read(ScenarioRun& run, SessionInfoTable* table) {
    Values values(TAG_COUNT);
    const ErrorCode code = si_read(table, TAG_COUNT, TAGS, values.data());
    Answer answer;
    if (code == NO_ERROR) {
        std::transform(values.begin(), values.end(), std::back_inserter(answer),
                       [](std::int64_t value) { return std::to_string(value); });
    }
    run.did(SESSION_READ, code, answer);
}

ScenarioStep opensAndWrites(const Operation& opening, OpenMode mode) {
    return [&opening, mode](ScenarioRun& run) {
        const SessionInfoTablePtr table = createSessionTable(run.root());
        if (run.did(opening, si_init(table.get(), mode))) {
            write(run, table.get(), LATER);
            write(run, table.get(), LAST);
        }
    };
}

ScenarioStep opensAndReads(OpenMode mode) {
    return [mode](ScenarioRun& run) {
        const SessionInfoTablePtr table = createSessionTable(run.root());
        if (run.did(SESSION_OPEN, si_init(table.get(), mode))) {
            read(run, table.get());
            read(run, table.get());
        }
    };
}

void drops(ScenarioRun& run) {
    const SessionInfoTablePtr table = createSessionTable(run.root());
    if (run.did(SESSION_OPEN, si_init(table.get(), OpenMode::write))) {
        const bool acknowledged = run.did(SESSION_WRITE, si_drop(table.get()));
        run.sessionWritten.push_back({ZEROS, acknowledged});
    }
}

// Each value is of the last acknowledged write or of a later one that failed; before the first, it is the stored one.
void expectValues(const ScenarioRun& run, const Values& stored, const Values& found) {
    ASSERT_EQ(found.size(), stored.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        std::vector<std::int64_t> possible = {stored[i]};
        for (const ScenarioRun::ValuesWritten& written : run.sessionWritten) {
            if (written.acknowledged) {
                possible.clear();
            }
            possible.push_back(written.values[i]);
        }
        EXPECT_NE(std::find(possible.begin(), possible.end(), found[i]), possible.end())
            << "the value of tag " << TAGS[i] << " is " << found[i] << ", the last acknowledged one "
            << possible.front();
    }
}

}  // namespace

std::string sessionPath(const ScenarioRun& run) {
    return run.directory.file("session");
}

ScenarioStep sessionFile(std::ptrdiff_t bytes) {
    return [bytes](ScenarioRun& run) {
        SessionInfoTablePtr table = openSessionTable(run.root(), OpenMode::create);
        EXPECT_EQ(writeValues(table.get(), STORED), NO_ERROR);
        table.reset();
        Bytes file = readFile(sessionPath(run));
        file.resize(static_cast<std::size_t>(static_cast<std::ptrdiff_t>(file.size()) + bytes), 0x55);
        writeFile(sessionPath(run), file);
    };
}

ScenarioStep sessionGoesOnWith(const Values& stored) {
    return [stored](ScenarioRun& run) {
        SessionInfoTablePtr table = openSessionTable(run.root(), OpenMode::write);
        if (table == nullptr) {
            return;
        }
        expectValues(run, stored, readValues(table.get()));
        const Values next = {41, 42, 43, 44, 45, 46};
        EXPECT_EQ(writeValues(table.get(), next), NO_ERROR) << "behind the fault";
        table.reset();
        table = openSessionTable(run.root(), OpenMode::read);
        if (table != nullptr) {
            EXPECT_EQ(readValues(table.get()), next);
        }
    };
}

std::vector<FaultScenario> sessionScenarios() {
    const auto wholeFile = sessionFile(0);
    const Values cut = {11, 12, 0, 0, 0, 0};
    return {
        {"CreateASessionTable", noFile, opensAndWrites(SESSION_CREATE, OpenMode::create), sessionGoesOnWith(ZEROS)},
        {"OpenAMissingSessionTable", noFile, opensAndWrites(SESSION_CREATE, OpenMode::write), sessionGoesOnWith(ZEROS)},
        {"WriteSessionValues", wholeFile, opensAndWrites(SESSION_OPEN, OpenMode::write), sessionGoesOnWith(STORED)},
        {"WriteSessionValuesOfAReader", wholeFile, opensAndWrites(SESSION_OPEN, OpenMode::read),
         sessionGoesOnWith(STORED)},
        {"ReadSessionValuesAsAReader", wholeFile, opensAndReads(OpenMode::read), sessionGoesOnWith(STORED)},
        {"ReadSessionValuesAsTheWriter", wholeFile, opensAndReads(OpenMode::write), sessionGoesOnWith(STORED)},
        {"RecoverCutSessionValues", sessionFile(-28), opensAndWrites(SESSION_OPEN, OpenMode::write),
         sessionGoesOnWith(cut)},
        {"RecoverGarbageBehindSessionValues", sessionFile(8), opensAndWrites(SESSION_OPEN, OpenMode::write),
         sessionGoesOnWith(STORED)},
        {"DropSessionValues", wholeFile, drops, sessionGoesOnWith(STORED)},
    };
}

}  // namespace tabulo::internal::test
