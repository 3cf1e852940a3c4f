// Writer and SessionInfo: what they have acknowledged is in the file, what they have refused is not.
#include <array>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/faults/api_steps.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t STORED = 6;
constexpr std::array<std::int32_t, 6> TAGS = {2, 1, 3, 4, 5, 6};

using OpenWriter = Writer (*)(const ScenarioRun&);

Writer creates(const ScenarioRun& run) {
    return Writer::create(run.path(), layoutOf(run.shape));
}

Writer opens(const ScenarioRun& run) {
    return Writer::open(run.path());
}

Writer opensOrCreates(const ScenarioRun& run) {
    return Writer::openOrCreate(run.path(), layoutOf(run.shape));
}

std::optional<Writer> openWriter(ScenarioRun& run, const Operation& operation, OpenWriter open) {
    std::optional<Writer> writer;
    apiDid(run, operation, [&](Answer& answer) {
        writer.emplace(open(run));
        answer.push_back(lineOf(writer->end()));
    });
    return writer;
}

// Records an append of some messages. Those that are told to be stored are, and the others are not; a cut that fails
// may leave one behind.
void recordAppend(ScenarioRun& run, const ApiFailure& failure, const std::vector<Message>& messages) {
    run.did(API_APPEND, failure.code);
    run.steps.back().systemText = failure.systemText;
    const std::size_t stored = failure.code == NO_ERROR ? messages.size() : static_cast<std::size_t>(failure.stored);
    EXPECT_LE(stored, messages.size());
    for (std::size_t i = 0; i < messages.size(); ++i) {
        run.written.push_back({messages[i], i < stored, run.truncatesFail});
    }
}

void append(ScenarioRun& run, Writer& writer, std::int32_t first, std::int32_t last) {
    for (std::int32_t n = first; n <= last; ++n) {
        const Message message = simpleMessage(n, run.shape);
        recordAppend(run, failureOf({run.path()}, [&] { writer.append(borrowedMessage(message)); }), {message});
    }
}

void appendFrames(ScenarioRun& run, Writer& writer, std::int32_t first, std::int32_t last) {
    const std::vector<Message> messages = simpleMessages(first, last, run.shape);
    std::vector<std::byte> frames;
    for (const Message& message : messages) {
        encode(borrowedMessage(message), layoutOf(run.shape), frames);
    }
    recordAppend(run, failureOf({run.path()}, [&] { writer.appendFrames(frames); }), messages);
}

void commitAndClose(ScenarioRun& run, Writer& writer) {
    apiDid(run, API_COMMIT, [&](Answer&) { writer.commit(); });
    apiDid(run, API_CLOSE, [&](Answer&) { writer.close(); });
    EXPECT_FALSE(writer.isOpen());
}

using Append = void (*)(ScenarioRun&, Writer&, std::int32_t, std::int32_t);

ScenarioStep opensAndAppends(const Operation& opening, OpenWriter open, Append store, std::int32_t first,
                             std::int32_t last) {
    return [=, &opening](ScenarioRun& run) {
        if (std::optional<Writer> writer = openWriter(run, opening, open)) {
            store(run, *writer, first, last);
            commitAndClose(run, *writer);
        }
    };
}

ScenarioStep emptyDirectory(const TableShape& shape) {
    return [shape](ScenarioRun& run) { run.shape = shape; };
}

ScenarioStep goesOnBehind(std::int32_t last) {
    return [last](ScenarioRun& run) { expectTableGoesOn(run, simpleMessages(1, last, run.shape)); };
}

// Without its success a drop may have left all messages or none, and what was appended behind it comes behind those.
void drops(ScenarioRun& run) {
    std::optional<Writer> writer = openWriter(run, API_OPEN_WRITER, opens);
    if (!writer) {
        return;
    }
    if (apiDid(run, API_DROP, [&](Answer& answer) {
            writer->drop();
            answer.push_back(lineOf(writer->end()));
        })) {
        append(run, *writer, 51, 55);
        commitAndClose(run, *writer);
    }
}

void goesOnEmptied(ScenarioRun& run) {
    std::vector<Message> base;
    if (run.steps.size() < 3) {
        const MessageTablePtr table = openTable(run.root(), OpenMode::write, run.shape);
        const std::vector<Message> there = table == nullptr ? base : readAll(table.get()).messages;
        base = there.empty() ? base : simpleMessages(1, STORED, run.shape);
    }
    expectTableGoesOn(run, base);
}

using OpenSession = SessionInfo (*)(const ScenarioRun&);

std::optional<SessionInfo> openSession(ScenarioRun& run, OpenSession open) {
    std::optional<SessionInfo> table;
    apiDid(run, API_SESSION_OPEN, {sessionPath(run)}, [&](Answer&) { table.emplace(open(run)); });
    return table;
}

void addValues(const SessionInfo& table, Answer& answer) {
    for (const SessionValue& value : table.values()) {
        answer.push_back(std::to_string(value.tag) + ": " + std::to_string(value.value));
    }
}

void closeSession(ScenarioRun& run, SessionInfo& table) {
    apiDid(run, API_CLOSE, {sessionPath(run)}, [&](Answer&) { table.close(); });
}

void writeValues(ScenarioRun& run, SessionInfo& table, std::int64_t first) {
    std::vector<SessionValue> values;
    Values written;
    for (const std::int32_t tag : TAGS) {
        written.push_back(first + static_cast<std::int64_t>(values.size()));
        values.push_back({tag, written.back()});
    }
    const bool acknowledged = apiDid(run, API_SESSION_WRITE, {sessionPath(run)}, [&](Answer&) { table.write(values); });
    run.sessionWritten.push_back({written, acknowledged});
    EXPECT_EQ(table.read(TAGS), written) << "the values of a failed write are the new ones";
}

ScenarioStep opensAndWrites(OpenSession open) {
    return [open](ScenarioRun& run) {
        if (std::optional<SessionInfo> table = openSession(run, open)) {
            writeValues(run, *table, 21);
            writeValues(run, *table, 31);
            closeSession(run, *table);
        }
    };
}

void readsValues(ScenarioRun& run) {
    std::optional<SessionInfo> table =
        openSession(run, [](const ScenarioRun& r) { return SessionInfo::open(sessionPath(r)); });
    if (table) {
        for (int times = 0; times < 2; ++times) {
            apiDid(run, API_SESSION_READ, {sessionPath(run)}, [&](Answer& answer) {
                table->refresh();
                addValues(*table, answer);
            });
        }
        closeSession(run, *table);
    }
}

SessionInfo opensSession(const ScenarioRun& run) {
    return SessionInfo::openForWriting(sessionPath(run));
}

void dropsValues(ScenarioRun& run) {
    if (std::optional<SessionInfo> table = openSession(run, opensSession)) {
        const bool acknowledged = apiDid(run, API_SESSION_WRITE, {sessionPath(run)}, [&](Answer&) { table->drop(); });
        run.sessionWritten.push_back({Values(TAGS.size()), acknowledged});
        closeSession(run, *table);
    }
}

std::vector<FaultScenario> writerScenarios() {
    const TableShape small = smallShape();
    const TableShape large = largeFooterShape();
    const auto closed = [](const TableShape& s) { return closedImage(s, simpleMessages(1, STORED, s)); };
    const auto cutFrame = [](const TableShape& shape) {
        const Bytes bytes = unclosedImage(shape, simpleMessages(1, STORED + 1, shape));
        return cutAt(bytes, bytes.size() - 10);
    };
    return {
        {"ApiCreateAndAppend", emptyDirectory(small), opensAndAppends(API_CREATE, creates, append, 1, 9),
         goesOnBehind(0)},
        {"ApiOpenOrCreateAndAppendFrames", emptyDirectory(small),
         opensAndAppends(API_CREATE, opensOrCreates, appendFrames, 1, 10), goesOnBehind(0)},
        {"ApiAppend", placed({small, closed}), opensAndAppends(API_OPEN_WRITER, opens, append, 7, 13),
         goesOnBehind(STORED)},
        {"ApiAppendFrames", placed({small, closed}), opensAndAppends(API_OPEN_WRITER, opens, appendFrames, 7, 18),
         goesOnBehind(STORED)},
        {"ApiAppendFramesToLargeFooters", placed({large, closed}),
         opensAndAppends(API_OPEN_WRITER, opens, appendFrames, 7, 18), goesOnBehind(STORED)},
        {"ApiRecoverACutFrame", placed({small, cutFrame}), opensAndAppends(API_OPEN_WRITER, opens, append, 51, 53),
         goesOnBehind(STORED)},
        {"ApiDrop", placed({small, closed}), drops, goesOnEmptied},
    };
}

}  // namespace

std::vector<FaultScenario> apiWritingScenarios() {
    const Values stored = {11, 12, 13, 14, 15, 16};
    const auto whole = sessionFile(0);
    const auto create = [](const ScenarioRun& run) { return SessionInfo::create(sessionPath(run), TAGS); };
    std::vector<FaultScenario> scenarios = writerScenarios();
    for (const FaultScenario& session : std::vector<FaultScenario>{
             {"ApiCreateSessionValues", [](ScenarioRun&) {}, opensAndWrites(create), sessionGoesOnWith(Values(6))},
             {"ApiWriteSessionValues", whole, opensAndWrites(opensSession), sessionGoesOnWith(stored)},
             {"ApiRecoverSessionValues", sessionFile(8), opensAndWrites(opensSession), sessionGoesOnWith(stored)},
             {"ApiReadSessionValues", whole, readsValues, sessionGoesOnWith(stored)},
             {"ApiDropSessionValues", whole, dropsValues, sessionGoesOnWith(stored)},
         }) {
        scenarios.push_back(session);
    }
    return scenarios;
}

}  // namespace tabulo::internal::test
