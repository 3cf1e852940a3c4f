#include "adapters/nats/shipper.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "adapters/nats/lag.h"
#include "adapters/nats/publisher.h"
#include "adapters/nats/session_source.h"
#include "adapters/nats/subject_token.h"
#include "adapters/nats/table_shipping.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

using Clock = std::chrono::steady_clock;
// How often the values of sessions and the folders are looked at.
constexpr std::chrono::milliseconds SESSION_PAUSE{20};
constexpr std::chrono::milliseconds FOLDER_PAUSE{500};
// A table that cannot be read for so long is told.
constexpr std::chrono::milliseconds UNREADABLE_FOR{2000};

// False for a table that is just being made: its header is not complete.
bool isMade(const std::filesystem::path& path) {
    try {
        (void)inspect(path);  // what it says is asked when it is shipped
        return true;
    } catch (const Error&) {
        return false;
    }
}

// What answers how far behind the shipper is: `tables` are of its newest run, none when it has ended.
struct LagSource {
    std::mutex mutex;
    LagReport report;
    const TableShipping* tables = nullptr;
    Clock::time_point upToDate = Clock::now();

    std::string text() {
        const std::scoped_lock lock(mutex);
        const TableShipping::Lag lag = tables == nullptr ? TableShipping::Lag{} : tables->lag();
        report.messages = lag.messages;
        report.bytes = lag.bytes;
        report.seconds = lag.bytes == 0 ? 0 : std::chrono::duration<double>(Clock::now() - upToDate).count();
        return lagText(report);
    }
    void follow(const TableShipping* followed) {
        const std::scoped_lock lock(mutex);
        tables = followed;
    }
    void isUpToDate() {
        const std::scoped_lock lock(mutex);
        upToDate = Clock::now();
    }
};

}  // namespace

struct Shipper::State {
    ~State() {
        if (lag != nullptr) {
            lag->follow(nullptr);
        }
    }
    State(LogStream& given, ShipOptions wanted, Words spoken)
        : options(std::move(wanted)), words(std::move(spoken)), publisher(given, words), paths(options.tables) {}

    void begin();
    void add(const std::filesystem::path& path);
    void tellMissing();
    void addNew(bool now);
    void lookAtSessions();
    void publishSessions();

    ShipOptions options;
    Words words;
    Publisher publisher;
    std::vector<std::filesystem::path> paths;                   // those given, and those that have come since
    std::map<std::filesystem::path, Clock::time_point> unmade;  // those that have come and cannot be read, since when
    std::unique_ptr<TableShipping> tables;                      // of this run
    std::vector<SessionSource> sessions;
    bool areHeldBack = false;     // which was said
    bool areSessionsDue = false;  // behind the ends that were noted when they were read
    Clock::time_point lookedAt{};
    Clock::time_point foldersAt{};
    std::shared_ptr<LagSource> lag;  // once it is asked
};

void Shipper::State::add(const std::filesystem::path& path) {
    std::optional<TableInfo> info;
    try {
        const std::string name = path.filename().string();
        const bool isKnown =
            tables->has(name) ||
            std::any_of(sessions.begin(), sessions.end(), [&](const auto& session) { return session.name() == name; });
        if (isKnown) {
            words.warn(path.string() + " is left out: another table is called " + name + " too");
        } else if (info = inspect(path); info->kind == TableKind::sessionInfo) {
            sessions.emplace_back(path);
            sessions.back().begin(publisher.stream());
        } else {
            tables->add(path);
        }
    } catch (const Error& error) {
        words.warn(error.what());
        if (!info.has_value() && error.code() != Code::signature) {  // else no value counts what it holds
            tables->noteLeftOut();
        }
    }
}

// The tables that the stream has, and nobody has named.
void Shipper::State::tellMissing() {
    const std::string& stream = publisher.stream().name();
    for (const std::string& subject : publisher.stream().subjects(stream + ".*.=layout")) {
        const auto parts = splitAt('.', subject);
        const std::optional<std::string> table = parts.size() == 3 ? unescaped(parts[1]) : std::nullopt;
        if (table.has_value() && !tables->has(*table)) {
            tables->tellMissing(*table);
        }
    }
}

void Shipper::State::begin() {
    publisher.begin(options.takeover);
    options.takeover = false;  // once
    sessions.clear();
    areSessionsDue = false;
    if (lag == nullptr) {
        lag = std::make_shared<LagSource>();
        const Owner& owner = publisher.owner();
        lag->report = {.stream = publisher.stream().name(), .role = "shipper", .host = owner.host, .pid = owner.pid};
        publisher.stream().answer(lagSubject(publisher.stream().name()), [source = lag] { return source->text(); });
    }
    lag->follow(nullptr);
    tables = std::make_unique<TableShipping>(
        publisher, words, ShipLeave{.acceptRewind = options.acceptRewind, .allowGap = options.allowGap});
    lag->follow(tables.get());
    for (const std::filesystem::path& path : paths) {
        add(path);
    }
    tellMissing();
}

void Shipper::State::addNew(bool now) {
    if (!options.newTables || (!now && Clock::now() - foldersAt < FOLDER_PAUSE)) {
        return;
    }
    foldersAt = Clock::now();
    for (const std::filesystem::path& path : options.newTables()) {
        unmade.emplace(path, foldersAt);
    }
    for (auto table = unmade.begin(); table != unmade.end();) {
        const auto& [path, since] = *table;
        if (!isMade(path) && foldersAt - since < UNREADABLE_FOR) {
            ++table;
            continue;
        }
        words.say("ships " + path.string() + " too");
        paths.push_back(path);
        add(path);
        table = unmade.erase(table);
    }
}

// Their values are read first, then the ends of the tables; what stands in front of these is published before them.
void Shipper::State::lookAtSessions() {
    if (Clock::now() - lookedAt < SESSION_PAUSE) {
        return;
    }
    lookedAt = Clock::now();
    if (areSessionsDue) {
        tables->renewEnds();
        return;
    }
    for (SessionSource& session : sessions) {
        try {
            areSessionsDue |= session.look(options.once ? std::chrono::milliseconds(0) : UNREADABLE_FOR);
        } catch (const Error& error) {
            words.warn(error.what());
        }
    }
    if (areSessionsDue) {
        addNew(true);  // a table that has come before the values were read
        tables->noteEnds();
    }
}

void Shipper::State::publishSessions() {
    if (!areSessionsDue || !tables->hasReachedEnds()) {
        return;
    }
    if (!tables->isWhole()) {
        if (!std::exchange(areHeldBack, true)) {
            words.say("the values of session info tables are not shipped while a table is left out");
        }
        return;
    }
    areSessionsDue = false;
    for (SessionSource& session : sessions) {
        if (session.isDue()) {
            session.publish(publisher);
        }
    }
}

Shipper::Shipper(LogStream& stream, ShipOptions options, Words words)
    : state_(std::make_unique<State>(stream, std::move(options), std::move(words))) {
}

Shipper::~Shipper() = default;

void Shipper::run() {
    State& state = *state_;
    state.begin();
    TableShipping& tables = *state.tables;
    if (state.options.once) {
        state.lookedAt = {};
        state.lookAtSessions();
        tables.noteEnds();
    }
    while (!tables.isRewound() && !(state.options.isStopped && state.options.isStopped())) {
        if (state.options.once && tables.hasReachedEnds()) {
            break;
        }
        if (!state.options.once || state.areSessionsDue) {  // the ends that were noted at the beginning stay
            state.lookAtSessions();
        }
        const bool hasCome = tables.step(SESSION_PAUSE);
        state.publishSessions();
        if (!hasCome) {
            state.publisher.stream().settle();
            state.addNew(false);
            state.lag->isUpToDate();
        }
    }
    state.publishSessions();
    state.publisher.end();
}

}  // namespace tabulo::shipping
