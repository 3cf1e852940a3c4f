#include "adapters/nats/receiver.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "adapters/nats/copy_content.h"
#include "adapters/nats/copy_table.h"
#include "adapters/nats/lag.h"
#include "adapters/nats/owner.h"
#include "adapters/nats/receive_note.h"
#include "adapters/nats/receiver_lag.h"
#include "adapters/nats/session_copies.h"
#include "adapters/nats/subject_token.h"
#include "adapters/nats/text_lines.h"
#include "tabulo/reader.h"

namespace tabulo::shipping {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds WAIT{100};
constexpr std::chrono::seconds NOTED_EVERY{1};
constexpr std::chrono::seconds FENCE_ASKED_EVERY{1};

}  // namespace

struct Receiver::State {
    LogStream& stream;
    ReceiveOptions options;
    Words words;
    ReceiveNote note{};  // what is to be noted; its sequence is that of the last record that was taken
    std::map<std::string, CopyTable> tables{};
    SessionCopies sessions{options.folder};
    std::set<std::string> refused{};
    std::map<std::string, int> attempts{};  // by table: how often its content was read again, from other places
    // By table: records in front of this one are of a content that is gone.
    std::map<std::string, std::uint64_t> skipped{};
    std::unique_ptr<LogCursor> cursor{};
    std::shared_ptr<ReceiverLag> lag{};
    Clock::time_point notedAt = Clock::now();
    Clock::time_point fenceAskedAt{};
    std::uint64_t noted = 0;

    void begin(LogStream::Ends ends);
    std::optional<std::uint64_t> beginningOf(const std::string& table);
    void forgetContents();
    void findLost();
    bool findFenceEnd(std::uint64_t sequence);
    void take(const Stored& stored);
    void takeOf(const Record& record, std::uint64_t sequence);
    void takeSession(const Record& record);
    void readTableAgain(const Record& record, const std::string& why);
    void setBack(const std::string& table, std::uint64_t beginning);
    void refuse(const std::string& table, const std::string& why);
    void flush();
    bool isAmidMessage() const;
    void noteEnds();
    void keepNote(bool now, const std::string& turning = {});
    void end();
};

Receiver::Receiver(LogStream& stream, ReceiveOptions options, Words words)
    : state_(new State{.stream = stream, .options = std::move(options), .words = std::move(words)}) {
}

Receiver::~Receiver() = default;

void Receiver::State::refuse(const std::string& table, const std::string& why) {
    if (refused.insert(table).second) {
        words.warn(why);
    }
    tables.erase(table);
}

// From where a table's content is to be compared: its newest rewind, behind which nothing was taken back; when that has
// not helped, its layout, once.
std::optional<std::uint64_t> Receiver::State::beginningOf(const std::string& table) {
    try {
        const std::optional<Stored> layout = layoutOfCopy(stream, table, options.folder / table);
        int& tried = attempts[table];
        if (!layout.has_value() || tried == 2) {
            return std::nullopt;
        }
        const std::optional<Stored> rewind = stream.last(subjectOf(stream.name(), table, RecordKind::rewind));
        const bool isRewind =
            tried == 0 && rewind.has_value() && recordOf(*rewind).incarnation == recordOf(*layout).incarnation;
        tried = isRewind ? 1 : 2;
        return isRewind ? rewind->sequence : layout->sequence;
    } catch (const ForeignRecord& error) {
        words.warn(error.what());
        return std::nullopt;
    }
}

// Nothing is noted of the tables that stand there.
void Receiver::State::forgetContents() {
    const std::string& name = stream.name();
    for (const std::string& subject : stream.subjects(name + ".*.=layout")) {
        const auto parts = splitAt('.', subject);
        const std::optional<std::string> table = unescaped(parts[1]);
        if (table.has_value() && isTableName(*table) && std::filesystem::exists(options.folder / *table)) {
            skipped[*table] = beginningOf(*table).value_or(0);
        }
    }
}

void Receiver::State::begin(LogStream::Ends ends) {
    std::filesystem::create_directories(options.folder);
    tables.clear();
    sessions.close();
    skipped.clear();
    attempts.clear();
    const std::optional<ReceiveNote> found = readNote(options.folder);
    if (found.has_value() && found->stream != stream.name()) {
        throw Refused(options.folder.string() + " holds the tables of the stream " + found->stream +
                      ": a folder is of one stream");
    }
    const bool isKnown = found.has_value() && found->made == ends.made && found->sequence <= ends.last;
    note = isKnown ? *found : ReceiveNote{.stream = stream.name(), .made = ends.made};
    noted = note.sequence;
    if (!isKnown) {
        forgetContents();
    }
    if (note.sequence + 1 < ends.first) {
        note.sequence = ends.first - 1;
        note.fence = 0;  // the oldest record that is left counts: a fence is older than what slips behind it
    }
    if (isKnown) {
        findLost();
    }
    cursor = stream.read(note.sequence + 1);
    if (lag == nullptr) {
        const Owner here = Owner::here();
        lag = std::make_shared<ReceiverLag>(
            LagReport{.stream = stream.name(), .role = "receiver", .host = here.host, .pid = here.pid});
        stream.answer(lagSubject(stream.name()), [source = lag] { return source->text(); });
    }
    lag->begin(ends.last - std::min(note.sequence, ends.last));
}

// Sets back to where what tables have lost since the note was made, as by a loss of power, can be read.
void Receiver::State::findLost() {
    const auto noteds = note.tables;
    for (const auto& [table, kept] : noteds) {
        const std::filesystem::path file = options.folder / table;
        if (!endsBefore(file, kept.end)) {
            continue;
        }
        const std::string what = file.string() + " has not all that was received";
        if (const auto beginning = beginningOf(table); beginning.has_value()) {
            words.say(what + ": it is compared with the stream");
            setBack(table, *beginning);
            continue;
        }
        words.warn(what + ", and the stream does not hold it any more: take the table from its source");
        note.tables.erase(table);
        if (std::filesystem::exists(file)) {  // else it was moved away, and nothing waits for it
            refused.insert(table);
        }
    }
}

void Receiver::State::takeSession(const Record& record) {
    flush();  // what the values may count
    if (refused.empty()) {
        sessions.write(record);
    }
}

// A record does not follow what its table has: the table's content is read again, and compared.
void Receiver::State::readTableAgain(const Record& record, const std::string& why) {
    const std::optional<std::uint64_t> beginning = beginningOf(record.table);
    if (!beginning.has_value()) {
        std::string has = "nothing";
        try {
            if (const auto last = Reader(options.folder / record.table).lastUniformId(); last.has_value()) {
                has = "messages up to the uniform id " + std::to_string(*last);
            }
        } catch (const Error&) {
            has = "no table";
        }
        refuse(record.table, why + ", or the stream does not hold what is missing any more: the copy has " + has +
                                 ", and the stream goes on with " + std::to_string(record.uniformId) + " at offset " +
                                 std::to_string(record.offset) + ". " + record.table +
                                 " is not received any more; moved away, it is built anew from what the stream has");
        return;
    }
    words.say(why + ": it is compared with the stream");
    flush();
    setBack(record.table, *beginning);
}

// A table is read again from a record on.
void Receiver::State::setBack(const std::string& table, std::uint64_t beginning) {
    tables.erase(table);
    note.tables.erase(table);
    skipped[table] = beginning;
    if (beginning <= note.sequence) {  // else it is still to come, behind records of other tables
        note.sequence = beginning - 1;
        note.fence = 0;  // it is a record that counts
        cursor = stream.read(beginning);
    }
}

void Receiver::State::takeOf(const Record& record, std::uint64_t sequence) {
    const auto known = note.tables.find(record.table);
    auto table = tables.find(record.table);
    if (table == tables.end()) {
        const std::int64_t incarnation = known == note.tables.end() ? 0 : known->second.incarnation;
        table = tables.emplace(record.table, CopyTable(options.folder / record.table, incarnation, words)).first;
    }
    const bool isTurn = table->second.isTurn(record);
    if (isTurn) {  // if this ends in the middle of it, it is done again, and nothing of what stands in front of it
        flush();
        keepNote(true, record.table);
        if (refused.contains(record.table) ||
            (record.kind == RecordKind::rewind &&
             isRewindApplied(stream, record, sequence, options.folder / record.table))) {
            return;
        }
    }
    try {
        table->second.apply(record);
        if (table->second.incarnation() != 0) {
            note.tables[record.table].incarnation = table->second.incarnation();
        }
    } catch (const CopyBehind& behind) {
        readTableAgain(record, behind.what());
    }
}

// Goes back to the owner record that has ended the fence in front of a sequence, when the cursor has not given it, as
// where a server has not caught up with the others; false when there is none.
bool Receiver::State::findFenceEnd(std::uint64_t sequence) {
    if (note.fence == 0 || Clock::now() - fenceAskedAt < FENCE_ASKED_EVERY) {
        return false;
    }
    fenceAskedAt = Clock::now();
    const std::optional<Stored> owner = stream.from(note.fence + 1, subjectOf(stream.name(), RecordKind::owner));
    if (!owner.has_value() || owner->sequence > sequence) {
        return false;
    }
    note.sequence = owner->sequence - 1;
    cursor = stream.read(owner->sequence);
    return true;
}

void Receiver::State::take(const Stored& stored) {
    std::string name;
    try {
        const Record record = recordOf(stored);
        name = record.table;
        const auto skip = skipped.find(name);
        const bool isGone = skip != skipped.end() && stored.sequence < skip->second;
        if (!isOfTable(record.kind)) {
            note.fence = record.kind == RecordKind::fence ? stored.sequence : 0;
        } else if (findFenceEnd(stored.sequence)) {
            return;
        }
        if (!isOfTable(record.kind) || note.fence != 0 || refused.contains(name) ||
            (isGone && record.kind != RecordKind::session)) {
            note.sequence = stored.sequence;
            return;
        }
        const std::uint64_t before = note.sequence;
        if (record.kind == RecordKind::session) {
            takeSession(record);
        } else if (record.kind == RecordKind::gap) {
            words.say(name + ": " + std::string(textOf(record.payload)));
        } else {
            takeOf(record, stored.sequence);
        }
        if (note.sequence == before) {  // it was not set back
            note.sequence = stored.sequence;
        }
        if (record.kind == RecordKind::layout || record.kind == RecordKind::drop || record.kind == RecordKind::rewind) {
            keepNote(true);
        }
    } catch (const ForeignRecord& error) {
        words.warn(error.what());
        note.sequence = stored.sequence;
    } catch (const CopyRefused& error) {
        refuse(name, error.what());
        note.sequence = stored.sequence;
    } catch (const Error& error) {
        refuse(name, error.what());
        note.sequence = stored.sequence;
    }
}

void Receiver::State::flush() {
    for (auto table = tables.begin(); table != tables.end();) {
        const std::string name = table->first;
        try {
            table->second.flush();
            ++table;
        } catch (const std::exception& error) {
            ++table;
            refuse(name, error.what());
        }
    }
}

bool Receiver::State::isAmidMessage() const {
    return std::any_of(tables.begin(), tables.end(), [](const auto& table) { return table.second.isAmidMessage(); });
}

// Where the tables that are open end, behind what was appended.
void Receiver::State::noteEnds() {
    for (const auto& [name, table] : tables) {
        if (table.incarnation() != 0 && table.end() != 0) {
            note.tables[name] = {table.incarnation(), table.end()};
        }
    }
}

// Everything in front of it has been appended; of a message whose parts have not all come the first one comes again.
// `turning`: a table that is about to be changed in another way, so that its end is not known.
void Receiver::State::keepNote(bool now, const std::string& turning) {
    const bool isDue = now || Clock::now() - notedAt > NOTED_EVERY;
    if (isDue && refused.empty() && noted != note.sequence && !isAmidMessage()) {
        flush();
        if (!refused.empty()) {
            return;  // what a table has not got is to come again with the next run
        }
        noteEnds();
        if (const auto turned = note.tables.find(turning); turned != note.tables.end()) {
            turned->second.end = 0;
        }
        writeNote(options.folder, note);
        noted = note.sequence;
        notedAt = Clock::now();
    }
}

void Receiver::State::end() {
    flush();
    noteEnds();
    const bool isAmid = isAmidMessage();
    for (auto& [name, table] : tables) {
        try {
            table.close();
        } catch (const std::exception& error) {
            refused.insert(name);
            words.warn(error.what());
        }
    }
    tables.clear();
    sessions.close();
    if (!isAmid) {
        keepNote(true);
    }
}

void Receiver::run() {
    State& state = *state_;
    const LogStream::Ends ends = state.stream.ends();
    state.begin(ends);
    try {
        while (!(state.options.isStopped && state.options.isStopped())) {
            if (state.options.once && state.note.sequence >= ends.last) {
                break;
            }
            std::optional<Stored> stored = state.cursor->next(std::chrono::milliseconds(0));
            if (!stored.has_value()) {
                state.flush();
                state.keepNote(false);
                (void)state.findFenceEnd(state.note.sequence);  // what comes next comes from there
                stored = state.cursor->next(WAIT);
            }
            if (stored.has_value()) {
                state.take(*stored);
                state.lag->took(stored->payload.size(), state.cursor->pending());
                state.keepNote(false);
            }
        }
    } catch (...) {
        state.end();
        throw;
    }
    state.end();
}

}  // namespace tabulo::shipping
