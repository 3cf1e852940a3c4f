// What must be left of a message table after a loss of power.
#include <algorithm>
#include <cstddef>

#include "messagetable/message_lookup.h"
#include "tests/power/message_power_run.h"

namespace tabulo::internal::test {

bool MessagePowerRun::recoverOnce(Tearing tearing) {
    disk_.stopAt(pick(random_, 1, 10), random_);
    table_ = createTable(ROOT, shape_);
    (void)mt_open(table_.get(), OpenMode::write);  // the disk may stop in it
    const bool stopped = disk_.stopped();
    disk_.stopNow();
    table_.reset();
    disk_.powerLoss(random_, tearing);
    note(stopped ? "lost again inside recovery" : "lost again behind recovery");
    return disk_.content(path_).has_value();
}

bool MessagePowerRun::goOnAfterLoss() {
    const auto tearing = static_cast<Tearing>(pick(random_, 0, 2));
    const bool hadFile = disk_.content(path_).has_value();
    disk_.powerLoss(random_, tearing);
    tally_["power losses"] += 1;
    tally_["synced messages looked for"] += static_cast<std::int64_t>(required_);
    note(std::string("power lost, torn by ") + nameOf(tearing) + ", committed " + std::to_string(required_) + " of " +
         std::to_string(history_.life().size()));
    if (oneIn(random_, 2)) {
        choosePolicy();
    }
    images_.clear();
    if (hadFile && disk_.content(path_).has_value()) {
        images_.push_back(fileNow());
        if (oneIn(random_, 4) && recoverOnce(tearing)) {
            images_.push_back(fileNow());
        }
    }
    if (!disk_.content(path_).has_value()) {
        if (required_ > 0) {
            throw BrokenPromise("the file is gone with its " + std::to_string(required_) + " committed messages");
        }
        tally_["tables gone before anything was committed"] += hadFile ? 1 : 0;
        inFlight_.reset();
        dropping_ = false;
        history_.replaceLife({});
        syncs_ = 0;
        open();
        return true;
    }
    checkBeforeRecovery();
    return openAfterLoss();
}

void MessagePowerRun::checkBeforeRecovery() {
    const auto before = disk_.files();
    {
        const MessageTablePtr reader = createTable(ROOT, shape_);
        const ErrorCode code = mt_open(reader.get(), OpenMode::read);
        ReadMessages read;
        read.code = code;
        if (code == NO_ERROR) {
            read = readAll(reader.get());
            const ReadMessages back = readAllBackward(reader.get());
            std::int32_t last = 0;
            const ErrorCode asked = mt_getLastUniformMessageId(reader.get(), &last);
            tally_["errors told to a reader before recovery"] +=
                read.code != NO_ERROR || back.code != NO_ERROR || asked != NO_ERROR ? 1 : 0;
        } else {
            tally_["tables refused to a reader before recovery"] += 1;
        }
        if (read.messages.size() < required_) {
            if (read.code == NO_ERROR) {
                throw BrokenPromise("before recovery a reader sees " + std::to_string(read.messages.size()) + " of " +
                                    std::to_string(required_) + " committed messages and no error");
            }
            tally_["committed messages that a reader gets only after recovery"] +=
                static_cast<std::int64_t>(required_ - read.messages.size());
        } else if (code == NO_ERROR) {
            match(read.messages, "to a reader after the loss,");
        }
    }
    if (disk_.files() != before) {
        throw BrokenPromise("a reader has changed a file");
    }
}

bool MessagePowerRun::openAfterLoss() {
    const auto before = disk_.files();
    table_ = createTable(ROOT, shape_);
    const ErrorCode code = mt_open(table_.get(), OpenMode::write);
    if (code != NO_ERROR) {
        table_.reset();
        if (required_ > 0) {
            throw BrokenPromise(std::to_string(required_) +
                                " committed messages are lost, the table cannot be opened: " + textOf(code));
        }
        if (disk_.files() != before) {
            throw BrokenPromise("the table is refused, but changed: " + textOf(code));
        }
        tally_["tables refused, nothing was committed"] += 1;
        return false;
    }
    const ReadMessages read = readAll(table_.get());
    if (read.messages.size() < required_) {
        throw BrokenPromise(std::to_string(required_ - read.messages.size()) + " of " + std::to_string(required_) +
                            " committed messages cannot be read after the loss: " + textOf(read.code));
    }
    const Found found = match(read.messages, "after recovery,");
    const std::size_t tornInFlight = found.tornInFlight ? 1 : 0;
    tally_["torn values that the format cannot tell"] += static_cast<std::int64_t>(found.torn - tornInFlight);
    tally_["torn messages that were never acknowledged"] += static_cast<std::int64_t>(tornInFlight);
    checkSaved(found);
    if (read.code == NO_ERROR) {
        checkFooters(found);
        checkCounts(found, read.messages.size());
    }
    inFlight_.reset();
    dropping_ = false;
    return workOnAfterLoss(read);
}

bool MessagePowerRun::isTorn(const KeptMessage& kept, const Message& read) const {
    const bool touched = std::any_of(images_.begin(), images_.end(),
                                     [&](const Bytes& image) { return !holds(image, kept.start, kept.frame); });
    return touched && frameOf(read).size() == kept.frame.size();
}

bool MessagePowerRun::matches(const Life& life, const std::vector<Message>& messages, Found* found) const {
    const bool present = &life == &history_.life();
    *found = {&life, messages.size()};
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const bool isNext = present && inFlight_ && i == life.size();
        found->wrong = i;
        if (i >= life.size() && !isNext) {
            return false;
        }
        const KeptMessage kept = isNext ? history_.placed(life, *inFlight_) : life[i];
        if (kept.message == messages[i]) {
            continue;
        }
        if ((present && i < required_) || !isTorn(kept, messages[i])) {
            return false;
        }
        found->torn += 1;
        found->tornInFlight = isNext;
    }
    return true;
}

MessagePowerRun::Found MessagePowerRun::match(const std::vector<Message>& messages, const std::string& when) {
    Found found;
    for (const Life* life : history_.lives()) {
        if (matches(*life, messages, &found)) {
            return found;
        }
        if (required_ > 0) {
            break;
        }
    }
    matches(history_.life(), messages, &found);
    throw BrokenPromise(when + describeStranger(found, messages[found.wrong]));
}

std::string MessagePowerRun::describeStranger(const Found& found, const Message& message) const {
    const std::string place = " message " + std::to_string(found.wrong + 1);
    const auto id = static_cast<std::size_t>(message.metadata.uniformId);
    if (id >= 1 && id <= written_.size() && written_[id - 1] == message) {
        return place + " is the one with the id " + std::to_string(id) +
               ", which was lost or dropped before: a cut has not reached the disk";
    }
    return place + " is one that nobody wrote:" + ::testing::PrintToString(message);
}

bool MessagePowerRun::isSaved(const KeptMessage& kept) const {
    for (const auto& [path, bytes] : disk_.files()) {
        if (path == path_
                ? holds(bytes, kept.start, kept.frame)
                : std::search(bytes.begin(), bytes.end(), kept.frame.begin(), kept.frame.end()) != bytes.end()) {
            return true;
        }
    }
    return false;
}

void MessagePowerRun::checkSaved(const Found& found) const {
    for (std::size_t i = found.count; i < found.life->size(); ++i) {
        const KeptMessage& kept = (*found.life)[i];
        if (holds(images_.front(), kept.start, kept.frame) && !isSaved(kept)) {
            throw BrokenPromise("message " + std::to_string(i + 1) + " was whole on the disk, and recovery has cut it");
        }
    }
}

void MessagePowerRun::checkFooters(const Found& found) {
    if (found.life != &history_.life()) {
        return;
    }
    const Bytes now = fileNow();
    const std::size_t blocks = std::min(found.count, found.life->size()) / history_.messagesPerBlock();
    for (std::size_t block = 0; block < blocks; ++block) {
        const std::size_t start = history_.footerStart(*found.life, block);
        if (start + history_.footerSize() > atLoss_.size()) {
            continue;
        }
        const auto from = atLoss_.begin() + static_cast<std::ptrdiff_t>(start);
        const Bytes written(from, from + static_cast<std::ptrdiff_t>(history_.footerSize()));
        if (holds(now, start, written)) {
            continue;
        }
        if (holds(committed_, start, written)) {
            throw BrokenPromise("the committed footer of block " + std::to_string(block + 1) + " has changed");
        }
        if (found.torn == 0) {
            tally_["torn footers that the format cannot tell"] += 1;
        }
    }
}

void MessagePowerRun::checkCounts(const Found& found, std::size_t read) {
    const auto stored = static_cast<std::size_t>(table_->records.dataInfo.messageCount);
    if (stored == read || found.torn > 0) {
        return;
    }
    tally_["message counts of a torn header that are believed"] += 1;
    const std::size_t perBlock = history_.messagesPerBlock();
    tally_["message counts of a torn header that the open block contradicts"] +=
        stored % perBlock != read % perBlock ? 1 : 0;
}

bool MessagePowerRun::workOnAfterLoss(const ReadMessages& before) {
    std::vector<Message> expected = before.messages;
    const std::int64_t count = pick(random_, 1, 9);
    for (std::int64_t i = 0; i < count; ++i) {
        expected.push_back(nextMessage());
        const ErrorCode code = writeMessage(table_.get(), expected.back());
        if (code != NO_ERROR) {
            throw BrokenPromise("after the loss a message is refused: " + textOf(code));
        }
    }
    if (before.code != NO_ERROR) {
        tally_["tables that tell an error at a closed block: " + textOf(before.code)] += 1;
        const ReadMessages back = readAllBackward(table_.get());
        std::vector<Message> newest(expected.rbegin(), expected.rbegin() + count);
        if (back.messages.size() < newest.size() || !std::equal(newest.begin(), newest.end(), back.messages.begin())) {
            throw BrokenPromise("messages written after the loss cannot be read backward");
        }
        return false;
    }
    const ReadMessages read = readAll(table_.get());
    if (read.code != NO_ERROR || read.messages != expected) {
        throw BrokenPromise("messages written after the loss cannot be read: " + textOf(read.code) + ", " +
                            std::to_string(read.messages.size()) + " of " + std::to_string(expected.size()) +
                            " are there");
    }
    history_.replaceLife(expected);
    countCommits();
    return true;
}

}  // namespace tabulo::internal::test
