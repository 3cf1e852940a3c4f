// Session info tables on a disk that loses its power at a random moment.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "tests/power/power_scenarios.h"
#include "tests/power/volatile_disk.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int64_t SCENARIOS = 500;  // of each test

const std::string ROOT = "/disk/";
const std::string PATH = ROOT + "session";

class SessionPowerRun {
  public:
    SessionPowerRun(const std::vector<Policy>& policies, Random& random, Tally& tally, std::string* trace)
        : policies_(policies), random_(random), tally_(tally), trace_(*trace) {
        tags_ = tagsUpTo(static_cast<std::int32_t>(oneIn(random, 2) ? 6 : pick(random, 1, 32)));
        written_.assign(1, Values(tags_.size(), 0));
        note(std::to_string(tags_.size()) + " tags");
    }
    ~SessionPowerRun() {
        disk_.stopNow();
        table_.reset();
    }
    SessionPowerRun(const SessionPowerRun&) = delete;
    SessionPowerRun& operator=(const SessionPowerRun&) = delete;

    void run();

  private:
    void note(const std::string& step) { trace_ += (trace_.empty() ? "" : ", ") + step; }
    void choosePolicy() { note(setRandomPolicy(policies_, random_)); }
    ErrorCode tryOpen(OpenMode mode) {
        table_ = createSessionTable(ROOT, tags_);
        return si_init(table_.get(), mode);
    }
    void open();
    void write(bool drop);
    void step();
    void countCommits();
    bool goOnAfterKill();
    bool goOnAfterLoss();
    void checkReader(Tearing tearing);
    // Whether the values are those of a write from the last committed one on. Throws when they cannot come from any
    // mixture of such writes, or when the disk cannot have mixed them.
    void check(const Values& values, Tearing tearing, bool reader);
    // The values that a file holds, with zero bytes for what is missing.
    Values rawValues(Bytes file) const;
    // The first values of one write, and zeros.
    bool isBeginning(const Values& values) const;
    bool isMixture(const Values& values, bool bytewise) const;
    std::size_t firstPossible() const { return committed_ ? *committed_ : 0; }

    VolatileDisk disk_;
    const std::vector<Policy>& policies_;
    Random& random_;
    Tally& tally_;
    std::string& trace_;
    Tags tags_;
    SessionInfoTablePtr table_;
    std::vector<Values> written_;   // of every write, the zeros of a new table first
    std::size_t acknowledged_ = 0;  // of them, the last one
    std::optional<std::size_t> committed_;
    std::int64_t syncs_ = 0;
    bool opened_ = false;
    bool allCommitted_ = true;  // not so for values that a killed process has left unacknowledged
};

void SessionPowerRun::countCommits() {
    if (disk_.syncs(PATH) != syncs_) {
        syncs_ = disk_.syncs(PATH);
        committed_ = acknowledged_;
        allCommitted_ = true;
    }
}

void SessionPowerRun::open() {
    const ErrorCode code = tryOpen(OpenMode::write);
    if (disk_.stopped()) {
        return;
    }
    if (code != NO_ERROR) {
        throw BrokenPromise("the session table cannot be opened: " + textOf(code));
    }
    opened_ = true;
    countCommits();
}

void SessionPowerRun::write(bool drop) {
    note(drop ? "drop" : "write");
    Values values = written_[acknowledged_];
    Tags chosen;
    Values given;
    for (std::size_t i = 0; i < tags_.size(); ++i) {
        if (drop) {
            values[i] = 0;
        } else if (!oneIn(random_, 3)) {
            values[i] = oneIn(random_, 2) ? values[i] + 1 : pick(random_, INT64_MIN, INT64_MAX);
            chosen.push_back(tags_[i]);
            given.push_back(values[i]);
        }
    }
    written_.push_back(values);
    const ErrorCode code = drop ? si_drop(table_.get()) : writeValues(table_.get(), chosen, given);
    if (disk_.stopped()) {
        return;
    }
    if (code != NO_ERROR) {
        throw BrokenPromise("the values are refused: " + textOf(code));
    }
    acknowledged_ = written_.size() - 1;
    countCommits();
}

void SessionPowerRun::step() {
    const std::int64_t kind = pick(random_, 1, 12);
    if (kind <= 8) {
        write(false);
    } else if (kind == 9) {
        write(true);
    } else if (kind == 10) {
        disk_.advanceClock(pick(random_, 0, 3));
    } else {
        note("close, open");
        table_.reset();
        if (!disk_.stopped()) {
            countCommits();
            open();
        }
    }
}

void SessionPowerRun::run() {
    choosePolicy();
    if (oneIn(random_, 6)) {
        disk_.stopAt(pick(random_, 1, 5), random_, true);
    }
    open();
    for (int round = 0; round < 4; ++round) {
        const std::int64_t steps = pick(random_, 1, 10);
        if (!disk_.stopped() && oneIn(random_, 2)) {
            disk_.stopAt(pick(random_, 1, 2 * steps), random_, true);
        }
        for (std::int64_t i = 0; i < steps && !disk_.stopped(); ++i) {
            step();
        }
        note(disk_.stopped() ? "stopped inside" : "stopped behind");
        disk_.stopNow();
        table_.reset();
        if (!(oneIn(random_, 4) ? goOnAfterKill() : goOnAfterLoss())) {
            return;
        }
    }
}

bool SessionPowerRun::goOnAfterKill() {
    note("killed");
    disk_.restart();
    syncs_ = disk_.syncs(PATH);  // a commit inside which the process stopped was none
    choosePolicy();
    const ErrorCode code = tryOpen(OpenMode::write);
    if (code != NO_ERROR) {
        throw BrokenPromise("after a kill the session table cannot be opened: " + textOf(code));
    }
    const Values values = readValues(table_.get(), tags_);
    if (values != written_[acknowledged_] && values != written_.back()) {
        throw BrokenPromise("after a kill the values are not those of the last write");
    }
    written_.push_back(values);
    acknowledged_ = written_.size() - 1;
    opened_ = true;
    allCommitted_ = false;
    countCommits();
    return true;
}

bool SessionPowerRun::isMixture(const Values& values, bool bytewise) const {
    for (std::size_t i = 0; i < values.size(); ++i) {
        const int pieces = bytewise ? 8 : 1;
        for (int piece = 0; piece < pieces; ++piece) {
            const auto part = [&](std::int64_t value) {
                return bytewise ? (static_cast<std::uint64_t>(value) >> (8 * piece)) & 0xff
                                : static_cast<std::uint64_t>(value);
            };
            const bool known =
                std::any_of(written_.begin() + static_cast<std::ptrdiff_t>(firstPossible()), written_.end(),
                            [&](const Values& written) { return part(written[i]) == part(values[i]); });
            // Behind the end of a first write that is cut there are zeros.
            if (!known && !(part(values[i]) == 0 && !committed_)) {
                return false;
            }
        }
    }
    return true;
}

bool SessionPowerRun::isBeginning(const Values& values) const {
    return std::any_of(written_.begin(), written_.end(), [&](const Values& written) {
        const auto end = std::mismatch(values.begin(), values.end(), written.begin()).first;
        return std::all_of(end, values.end(), [](std::int64_t value) { return value == 0; });
    });
}

void SessionPowerRun::check(const Values& values, Tearing tearing, bool reader) {
    const auto first = written_.begin() + static_cast<std::ptrdiff_t>(firstPossible());
    if (std::find(first, written_.end(), values) != written_.end()) {
        return;
    }
    if (!committed_ && isBeginning(values)) {
        // The file has kept the length of a value area that was cut: the repair of it was not committed.
        tally_["session tables that hold the beginning of a write"] += reader ? 0 : 1;
        return;
    }
    if (tearing != Tearing::byte) {
        throw BrokenPromise("the values are those of no write, although the disk tears no sector");
    }
    if (!isMixture(values, true)) {
        throw BrokenPromise("there is a value that nobody wrote");
    }
    if (!reader) {
        tally_[isMixture(values, false) ? "session values of different writes side by side"
                                        : "torn session values that the format cannot tell"] += 1;
    }
}

void SessionPowerRun::checkReader(Tearing tearing) {
    const auto before = disk_.files();
    const ErrorCode code = tryOpen(OpenMode::read);
    if (code == NO_ERROR) {
        Values values(tags_.size());
        const ErrorCode read =
            si_read(table_.get(), static_cast<std::int32_t>(tags_.size()), tags_.data(), values.data());
        if (read == NO_ERROR) {
            check(values, tearing, true);
        }
        tally_["session errors told to a reader before recovery"] += read == NO_ERROR ? 0 : 1;
    } else {
        // A first write that is not all there is told so; what was committed before it is the lack of values.
        tally_["session tables refused to a reader before recovery"] += 1;
        if (committed_ && disk_.content(PATH)->size() >= headerSizeFor(tags_.size()) + 8 * tags_.size()) {
            throw BrokenPromise("a reader is refused a table with committed values: " + textOf(code));
        }
    }
    table_.reset();
    if (disk_.files() != before) {
        throw BrokenPromise("a reader has changed a file");
    }
}

bool SessionPowerRun::goOnAfterLoss() {
    const auto tearing = static_cast<Tearing>(pick(random_, 0, 2));
    disk_.powerLoss(random_, tearing);
    if (opened_ && allCommitted_ && std::all_of(policies_.begin(), policies_.end(), commitsEveryFlush)) {
        committed_ = acknowledged_;
    }
    tally_["power losses of session tables"] += 1;
    tally_["synced session values looked for"] += committed_ ? static_cast<std::int64_t>(tags_.size()) : 0;
    note(std::string("power lost, torn by ") + nameOf(tearing) + (committed_ ? ", committed" : ", not committed"));
    choosePolicy();
    const auto before = disk_.files();
    if (!disk_.content(PATH)) {
        if (committed_) {
            throw BrokenPromise("the file is gone with its committed values");
        }
        tally_["session tables gone before anything was committed"] += opened_ ? 1 : 0;
        syncs_ = 0;
    } else {
        checkReader(tearing);
    }
    const ErrorCode code = tryOpen(OpenMode::write);
    if (code != NO_ERROR) {
        if (committed_) {
            throw BrokenPromise("the table with committed values cannot be opened: " + textOf(code));
        }
        if (disk_.files() != before) {
            throw BrokenPromise("the table is refused, but changed: " + textOf(code));
        }
        tally_["session tables refused, nothing was committed"] += 1;
        return false;
    }
    const Values values = readValues(table_.get(), tags_);
    check(values, tearing, false);
    // What stood on the disk can come back as long as a repair is not committed.
    const bool untouched = disk_.files() == before;
    written_.assign(1, untouched || !before.contains(PATH) ? values : rawValues(before.at(PATH)));
    written_.push_back(values);
    acknowledged_ = 1;
    committed_ = untouched ? std::optional(acknowledged_) : std::nullopt;
    opened_ = true;
    allCommitted_ = untouched;
    countCommits();
    return true;
}

Values SessionPowerRun::rawValues(Bytes file) const {
    const std::size_t start = headerSizeFor(tags_.size());
    Values values(tags_.size(), 0);
    file.resize(start + 8 * values.size(), 0);
    std::memcpy(values.data(), file.data() + start, 8 * values.size());
    return values;
}

void runSessions(const std::vector<Policy>& policies, std::int64_t count) {
    runPowerScenarios(count, [&](Random& random, Tally& tally, std::string* trace) {
        SessionPowerRun(policies, random, tally, trace).run();
    });
}

TEST(SessionPower, WithACommitForEveryFlushNoAcknowledgedValueIsLost) {
    runSessions({{true, 0, 0}}, SCENARIOS * testEffort());
}

TEST(SessionPower, WithACommitNowAndThenNoCommittedValueIsLost) {
    runSessions({{true, 0, 1}, {true, 0, 3}, {true, 2, 0}}, SCENARIOS * testEffort());
}

TEST(SessionPower, WithoutCommitsTheValuesAreThoseOfSomeWriteOrRefused) {
    runSessions({{false, 0, 0}}, SCENARIOS * testEffort());
}

TEST(SessionPower, ProcessesOfDifferentPoliciesLoseNoCommittedValue) {
    runSessions({{false, 0, 0}, {true, 0, 0}, {true, 0, 2}}, SCENARIOS * testEffort());
}

}  // namespace

}  // namespace tabulo::internal::test
