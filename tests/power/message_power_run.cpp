#include "tests/power/message_power_run.h"

#include <algorithm>
#include <cstddef>

namespace tabulo::internal::test {

namespace {

std::string randomText(Random& random, std::int64_t length) {
    std::string text;
    for (std::int64_t i = 0; i < length; ++i) {
        text += static_cast<char>(pick(random, 'a', 'z'));
    }
    return withNul(text);
}

}  // namespace

MessagePowerRun::MessagePowerRun(const TableShape& shape, const std::vector<Policy>& policies, Random& random,
                                 Tally& tally, std::string* trace)
    : shape_(shape),
      policies_(policies),
      random_(random),
      tally_(tally),
      path_(std::string(ROOT) + shape.name),
      trace_(*trace),
      history_(shape),
      everyFlush_(std::all_of(policies.begin(), policies.end(), commitsEveryFlush)) {
    note(std::to_string(shape.messagesPerBlock) + " messages a block");
}

MessagePowerRun::~MessagePowerRun() {
    disk_.stopNow();
    table_.reset();
}

void MessagePowerRun::note(const std::string& step) {
    trace_ += (trace_.empty() ? "" : ", ") + step;
}

void MessagePowerRun::choosePolicy() {
    note(setRandomPolicy(policies_, random_));
}

Message MessagePowerRun::nextMessage() {
    Message message = simpleMessage(static_cast<std::int32_t>(written_.size()) + 1, shape_);
    const std::int64_t length = oneIn(random_, 30)  ? pick(random_, 3000, 9000)
                                : oneIn(random_, 3) ? 60  // alike, as an engine's messages are
                                                    : pick(random_, 0, 400);
    message.strings[message.strings.size() - 2] = randomText(random_, length);
    written_.push_back(message);
    return message;
}

void MessagePowerRun::open() {
    table_ = createTable(ROOT, shape_);
    const ErrorCode code = mt_open(table_.get(), OpenMode::write);
    if (disk_.stopped()) {
        return;
    }
    if (code != NO_ERROR) {
        throw BrokenPromise("the table cannot be opened: " + textOf(code));
    }
    countCommits();
}

void MessagePowerRun::countCommits() {
    if (disk_.syncs(path_) != syncs_) {
        syncs_ = disk_.syncs(path_);
        committedAtLastEnd_ = disk_.committed(path_);
        allCommitted_ = true;
        history_.forgetOlderLives();
    }
}

void MessagePowerRun::write(std::int64_t count) {
    note("write " + std::to_string(count));
    for (std::int64_t i = 0; i < count; ++i) {
        const Message message = nextMessage();
        const ErrorCode code = writeMessage(table_.get(), message);
        if (disk_.stopped()) {
            inFlight_ = message;
            return;
        }
        if (code != NO_ERROR) {
            throw BrokenPromise("a message is refused: " + textOf(code));
        }
        history_.add(message);
        countCommits();
    }
}

void MessagePowerRun::reopen(bool closed) {
    note(closed ? "close, open" : "end without close, open");
    if (closed) {
        (void)mt_close(table_.get());  // the disk may stop in it
    }
    table_.reset();
    if (!disk_.stopped()) {
        open();
    }
}

void MessagePowerRun::drop() {
    note("drop");
    dropping_ = true;
    const ErrorCode code = mt_drop(table_.get());
    if (disk_.stopped()) {
        return;
    }
    if (code != NO_ERROR) {
        throw BrokenPromise("the drop fails: " + textOf(code));
    }
    dropping_ = false;
    history_.beginLife();
    countCommits();
}

void MessagePowerRun::checkReader() {
    note("read");
    const MessageTablePtr reader = openTable(ROOT, OpenMode::read, shape_);
    const ReadMessages read = readAll(reader.get());
    if (read.code != NO_ERROR || read.messages.size() != history_.life().size()) {
        throw BrokenPromise("a reader beside the writer sees " + std::to_string(read.messages.size()) + " of " +
                            std::to_string(history_.life().size()) + " messages: " + textOf(read.code));
    }
}

void MessagePowerRun::step() {
    const std::int64_t kind = pick(random_, 1, 20);
    if (kind <= 13) {
        write(pick(random_, 1, 5));
    } else if (kind <= 15) {
        reopen(true);
    } else if (kind == 16) {
        reopen(false);
    } else if (kind == 17 && oneIn(random_, 2)) {
        drop();
    } else if (kind == 18) {
        disk_.advanceClock(pick(random_, 0, 3));
    } else if (kind == 19) {
        checkReader();
    }
}

void MessagePowerRun::run() {
    choosePolicy();
    if (oneIn(random_, 10)) {
        disk_.stopAt(pick(random_, 1, 6), random_);
    }
    open();
    for (int round = 0; round < 3; ++round) {
        const std::int64_t steps = pick(random_, 1, 12);
        if (!disk_.stopped() && oneIn(random_, 2)) {
            disk_.stopAt(pick(random_, 1, 6 * steps), random_);
        }
        for (std::int64_t i = 0; i < steps && !disk_.stopped(); ++i) {
            step();
        }
        note(disk_.stopped() ? "stopped inside" : "stopped behind");
        disk_.stopNow();
        rememberCommitted();
        table_.reset();
        const bool goesOn = oneIn(random_, 3) ? goOnAfterKill() : goOnAfterLoss();
        if (!goesOn) {
            return;
        }
    }
}

bool MessagePowerRun::goOnAfterKill() {
    note("killed");
    disk_.restart();
    const Bytes before = fileNow();
    if (oneIn(random_, 2)) {
        choosePolicy();
    }
    images_.assign(1, before);
    required_ = history_.life().size();
    syncs_ = disk_.syncs(path_);  // a commit inside which the process stopped was none
    table_ = createTable(ROOT, shape_);
    const ErrorCode code = mt_open(table_.get(), OpenMode::write);
    if (code != NO_ERROR) {
        // Only a beginning of the header can be that short.
        if (before.size() < 20 && fileNow() == before && (history_.life().empty() || dropping_)) {
            return false;
        }
        throw BrokenPromise("after a kill the table cannot be opened: " + textOf(code));
    }
    const ReadMessages read = readAll(table_.get());
    if (read.code != NO_ERROR) {
        throw BrokenPromise("after a kill reading ends with: " + textOf(read.code));
    }
    if (dropping_ && read.messages.empty()) {
        history_.beginLife();
    } else {
        const Found found = match(read.messages, "after a kill,");
        if (found.torn > 0 || found.life != &history_.life() || found.count < history_.life().size()) {
            throw BrokenPromise("after a kill " + std::to_string(found.count) + " of " +
                                std::to_string(history_.life().size()) + " messages are there, " +
                                std::to_string(found.torn) + " of them torn");
        }
        if (found.count > history_.life().size()) {
            history_.add(*inFlight_);
            allCommitted_ = false;
        }
    }
    inFlight_.reset();
    dropping_ = false;
    countCommits();
    return true;
}

void MessagePowerRun::rememberCommitted() {
    atLoss_ = fileNow();
    committed_ = disk_.committed(path_);
    // A commit counts when its operation ended, or when only the file's own bytes were missing on the disk.
    const Bytes& counted = disk_.isNameCommitted(path_) ? committed_ : committedAtLastEnd_;
    required_ = dropping_ ? 0 : wholeMessages(history_.life(), counted);
    if (everyFlush_ && allCommitted_ && !dropping_) {
        required_ = history_.life().size();
    }
}

}  // namespace tabulo::internal::test
