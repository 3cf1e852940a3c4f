#include "adapters/quickfix/session_store.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <filesystem>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "adapters/quickfix/process_state.h"
#include "adapters/quickfix/put_aside.h"
#include "adapters/quickfix/wire_message.h"
#include "tabulo/error.h"
#include "tabulo/reader.h"
#include "tabulo/session_info.h"
#include "tabulo/writer.h"

namespace tabulo::quickfix {

namespace {

constexpr std::array<std::int32_t, 7> TAGS = {1, 2, 3, 4, 5, 6, 7};
constexpr const char* HEARTBEAT = "0";

std::int64_t now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// How a message came to be stored.
enum class Way { set, sentAgain, received };

MessageClass classOf(Way way, std::string_view type) noexcept {
    if (way == Way::sentAgain) {
        return MessageClass::resent;
    }
    // What has no type never reaches an application.
    const bool isOfSession = type.empty() || isAdministrative(type);
    if (way == Way::set) {
        return isOfSession ? MessageClass::adminTo : MessageClass::appTo;
    }
    return isOfSession ? MessageClass::adminFrom : MessageClass::appFrom;
}

// A number of a file as one of the engine.
int numberOf(std::int64_t value) {
    return static_cast<int>(std::clamp<std::int64_t>(value, 1, std::numeric_limits<int>::max()));
}

}  // namespace

struct SessionStore::State {
    State(StoreSettings given, const SessionName& session)
        : settings(std::move(given)),
          table(std::filesystem::path(settings.folder) / tableNameOf(session)),
          sessionTable(std::filesystem::path(settings.folder) / sessionTableNameOf(session)),
          wires(settings) {}

    void open();
    void openMessages();
    void readNumbers();
    void writeNumbers();
    void putAside(std::int64_t begunAt);
    void append(std::string_view wire, Way way, std::optional<int> number);
    void settlePending();

    // Runs an operation on open tables; what it throws is told as StoreFailure.
    template <typename Operation>
    auto run(const Operation& operation) {
        const std::scoped_lock lock(mutex);
        try {
            if (!isSound || !writer->isOpen()) {
                open();
            }
            return operation();
        } catch (const StoreFailure&) {
            throw;
        } catch (const std::exception& error) {
            isSound = false;
            throw StoreFailure(error.what());
        }
    }
    // The same for the log, which never throws: the reason of a failure.
    template <typename Operation>
    std::string attempt(const Operation& operation) noexcept {
        try {
            try {
                run(operation);
                return {};
            } catch (const std::exception& error) {
                return error.what();
            }
        } catch (...) {
            return "out of memory";  // short enough to need none
        }
    }

    std::mutex mutex;
    const StoreSettings settings;
    const std::filesystem::path table;
    const std::filesystem::path sessionTable;
    WireMessage wires;
    bool isSound = false;  // else the tables are to be opened again
    std::optional<Writer> writer;
    std::optional<Reader> reader;
    std::optional<SessionInfo> info;
    std::array<std::int32_t, messageClassCount> lastIds{};  // by class number
    int sender = 1;
    int target = 1;
    std::int64_t created = 0;
    Position counted;  // where the message table ended when `sender` was written
    Position begun;    // where the present series begins
    std::string lastSet;
    bool isLastSetDue = false;         // the log is told of it next
    std::vector<std::string> pending;  // received messages that could not be stored
    std::string pendingFailure;        // why, until an operation has told it
};

void SessionStore::State::openMessages() {
    reader.reset();
    writer.reset();
    writer = Writer::openOrCreate(table, layoutOf(settings));
    reader.emplace(table);
    for (std::size_t number = 0; number < lastIds.size(); ++number) {
        const auto messageClass = static_cast<MessageClass>(number);
        lastIds[number] = reader->lastId(messageClass).value_or(firstId(messageClass) - 1);
    }
}

void SessionStore::State::open() {
    std::filesystem::create_directories(settings.folder);
    startUniformIdsAbove(settings.folder);
    openMessages();
    info.reset();
    info = SessionInfo::openOrCreate(sessionTable, TAGS);
    isLastSetDue = false;
    readNumbers();
    isSound = true;
}

void SessionStore::State::readNumbers() {
    const std::vector<std::int64_t> values = info->read(TAGS);
    const Position end = writer->end();
    if (values[2] == 0) {  // it has just been made
        sender = target = 1;
        created = now();
        counted = begun = end;
        writeNumbers();
        return;
    }
    sender = numberOf(values[0]);
    target = numberOf(values[1]);
    created = values[2];
    // The table ends in front of a place when it has lost its end, as without power, or was put aside.
    counted = values[4] > end.offset ? end : Position{values[3], values[4]};
    begun = values[6] > end.offset ? end : Position{values[5], values[6]};
    if (values[4] > end.offset || values[6] > end.offset) {
        writeNumbers();  // before anything is stored behind those places
    }
    Messages behind = reader->messages(
        Query().from(counted).classes({MessageClass::appTo, MessageClass::adminTo}).seqNums(sender, std::nullopt));
    while (const MessageView* message = behind.next()) {
        sender = std::max(sender, numberOf(std::int64_t{message->seqNum()} + 1));
    }
}

void SessionStore::State::writeNumbers() {
    const std::array<SessionValue, TAGS.size()> values = {{{1, sender},
                                                           {2, target},
                                                           {3, created},
                                                           {4, counted.block},
                                                           {5, counted.offset},
                                                           {6, begun.block},
                                                           {7, begun.offset}}};
    info->write(values);
}

// The session info table has begun the new series already: a process that ends anywhere in here goes on with it.
void SessionStore::State::putAside(std::int64_t begunAt) {
    reader.reset();
    writer->close();
    writer.reset();
    putTableAside(table, begunAt);
    openMessages();
    counted = begun = writer->end();
    writeNumbers();
    removeOldest(table, settings.kept);
}

// `number`: of a message that is `set`, as the engine has it; none to take that of the message.
void SessionStore::State::append(std::string_view wire, Way way, std::optional<int> number) {
    Message& message = wires.of(wire);
    if (way == Way::received && !settings.logsHeartbeats && message.type == HEARTBEAT) {
        return;
    }
    const MessageClass messageClass = classOf(way, message.type);
    const auto index = static_cast<std::size_t>(messageClass);
    if (lastIds[index] >= lastId(messageClass)) {
        throw StoreFailure(table.string() + ": all ids of its class " + std::string(className(messageClass)) +
                           " are used up: put the table aside and begin a new one");
    }
    message.seqNum = number.value_or(message.seqNum);
    message.outOfSequence = way == Way::received && !message.possDup && message.seqNum != 0 && message.seqNum != target;
    message.id = lastIds[index] + 1;
    message.uniformId = nextUniformId();
    message.time = now();
    writer->append(message);
    lastIds[index] += 1;
}

// Tells the failure once; from then on the messages are stored before anything else is done, or that fails too.
void SessionStore::State::settlePending() {
    if (!pendingFailure.empty()) {
        throw StoreFailure("a received message could not be stored: " + std::exchange(pendingFailure, {}));
    }
    while (!pending.empty()) {
        append(pending.front(), Way::received, std::nullopt);
        pending.erase(pending.begin());
    }
}

SessionStore::SessionStore(StoreSettings settings, const SessionName& session)
    : state_(std::make_unique<State>(std::move(settings), session)) {
    shareSync(state_->settings.sync);
    state_->run([] {});
}

SessionStore::~SessionStore() = default;

void SessionStore::set(int number, const std::string& wire) {
    State& state = *state_;
    state.run([&] {
        state.settlePending();
        state.append(wire, Way::set, number);
        state.lastSet = wire;
        state.isLastSetDue = true;
    });
}

void SessionStore::get(int first, int last, std::vector<std::string>* messages) {
    State& state = *state_;
    state.run([&] {
        messages->clear();
        if (first > last) {
            return;
        }
        std::vector<int> numbers;  // of the messages found, mostly ascending
        bool isAscending = true;
        Messages selected = state.reader->messages(
            Query().from(state.begun).classes({MessageClass::appTo, MessageClass::adminTo}).seqNums(first, last));
        while (const MessageView* message = selected.next()) {
            isAscending = isAscending && (numbers.empty() || message->seqNum() > numbers.back());
            numbers.push_back(message->seqNum());
            messages->emplace_back(message->wire().value_or(""));
        }
        if (!isAscending) {
            std::map<int, std::string> newest;
            for (std::size_t i = 0; i < numbers.size(); ++i) {
                newest.insert_or_assign(numbers[i], std::move((*messages)[i]));
            }
            messages->clear();
            for (auto& [number, wire] : newest) {
                messages->push_back(std::move(wire));
            }
        }
    });
}

int SessionStore::nextSender() {
    return state_->run([&] { return state_->sender; });
}

int SessionStore::nextTarget() {
    return state_->run([&] { return state_->target; });
}

void SessionStore::setNextSender(int number) {
    State& state = *state_;
    state.run([&] {
        state.settlePending();
        state.sender = number;
        state.counted = state.writer->end();
        state.writeNumbers();
    });
}

void SessionStore::setNextTarget(int number) {
    State& state = *state_;
    state.run([&] {
        state.settlePending();
        state.target = number;
        state.writeNumbers();
    });
}

void SessionStore::incrementNextSender() {
    State& state = *state_;
    state.run([&] {
        state.settlePending();
        state.sender += 1;
        state.counted = state.writer->end();
        state.writeNumbers();
    });
}

void SessionStore::incrementNextTarget() {
    State& state = *state_;
    state.run([&] {
        state.settlePending();
        state.target += 1;
        state.writeNumbers();
    });
}

std::int64_t SessionStore::creationTime() {
    return state_->run([&] { return state_->created; });
}

void SessionStore::reset() {
    State& state = *state_;
    state.run([&] {
        state.settlePending();
        const std::int64_t before = std::exchange(state.created, now());
        state.sender = state.target = 1;
        state.counted = state.begun = state.writer->end();
        state.writeNumbers();
        state.isLastSetDue = false;
        if (state.settings.rolls) {
            state.putAside(before);
        }
    });
}

void SessionStore::refresh() {
    State& state = *state_;
    state.run([&] {
        state.settlePending();
        state.isSound = false;
        state.open();
    });
}

std::string SessionStore::received(const std::string& wire) noexcept {
    State& state = *state_;
    std::string failure = state.attempt([&] { state.append(wire, Way::received, std::nullopt); });
    if (!failure.empty()) {
        const std::scoped_lock lock(state.mutex);
        try {
            state.pendingFailure = failure;
            state.pending.push_back(wire);
        } catch (const std::bad_alloc&) {
            state.pendingFailure = "out of memory";  // short enough to need none
        }
    }
    return failure;
}

std::string SessionStore::sent(const std::string& wire) noexcept {
    State& state = *state_;
    return state.attempt([&] {
        if (!std::exchange(state.isLastSetDue, false) || wire != state.lastSet) {
            state.append(wire, Way::sentAgain, std::nullopt);
        }
    });
}

}  // namespace tabulo::quickfix
