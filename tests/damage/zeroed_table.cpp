#include "tests/damage/zeroed_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

#include "index/uniform_lookup.h"
#include "tests/damage/saved_frames.h"

namespace tabulo::internal::test {

namespace {

using Numbers = std::vector<std::int64_t>;

constexpr std::size_t FORWARD_WALK = 0;
constexpr std::size_t BACKWARD_WALK = 1;

// The values of the part are among those of the whole, in its order.
bool isSelection(const Numbers& part, const Numbers& whole) {
    auto next = whole.begin();
    for (const std::int64_t value : part) {
        next = std::find(next, whole.end(), value);
        if (next == whole.end()) {
            return false;
        }
        ++next;
    }
    return true;
}

Numbers withoutForeign(Numbers values) {
    std::erase(values, FOREIGN_MESSAGE);
    std::erase(values, NO_END);
    return values;
}

std::string text(const Numbers& values) {
    std::string list = "[";
    for (const std::int64_t value : values) {
        list += (list.size() == 1 ? "" : " ") + (value == FOREIGN_MESSAGE ? "?" : std::to_string(value));
    }
    return list + "]";
}

Numbers numbersFrom(std::int64_t first, std::int64_t last) {
    Numbers numbers(static_cast<std::size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

// A watch waits at a frame that does not decode: it has ended where its last message is.
bool waits(const Question& question) {
    return question.name.starts_with("watching");
}

bool isLookup(const Question& question) {
    return question.name.starts_with("the ");
}

MessageTablePtr open(const TableShape& shape, OpenMode mode, ErrorCode* code) {
    MessageTablePtr table = createTable(MEMORY_ROOT, shape);
    *code = mt_open(table.get(), mode);
    return table;
}

}  // namespace

ZeroedTable::ZeroedTable(std::vector<Message> known, std::int32_t stored, TableEnd end)
    : startedSince_(platform_.record()),
      known_(std::move(known)),
      stored_(stored),
      map_(mapOf(shape_, this->stored())),
      regions_(regionsOf(shape_, this->stored())),
      questions_(tableQuestions(known_)),
      image_(writtenTable(&platform_, shape_, this->stored(), end)) {
    startedSince_.writtenBeforeStart = [](int) { return true; };
    EXPECT_EQ(image_.size(), map_.dataEnd) << "the test's own map of the file is wrong";
}

ZeroedTable::~ZeroedTable() {
    filePlatform_install(&platform_.record());
}

std::vector<Message> ZeroedTable::stored() const {
    return {known_.begin(), known_.begin() + stored_};
}

Numbers ZeroedTable::whole(const HitTable& damage, const Bytes& file, bool byFooters) const {
    Numbers found;
    for (std::int64_t number = 1; number <= stored_; ++number) {
        const TableMap::Frame& frame = map_.frame(static_cast<std::size_t>(number));
        const std::string block = "block " + std::to_string((number - 1) / shape_.messagesPerBlock + 1);
        if (frame.end > map_.openBlockStart || frame.end > file.size() || damage.isHit(frame.start, frame.end)) {
            continue;
        }
        const auto start = static_cast<std::ptrdiff_t>(frame.start);
        const bool stands = std::equal(file.begin() + start, file.begin() + static_cast<std::ptrdiff_t>(frame.end),
                                       image_.begin() + start);
        const bool decided = !byFooters || (!areFootersHit(damage, "the ranges of " + block) &&
                                            !areFootersHit(damage, "the bits of a filter of " + block));
        if (stands && decided) {
            found.push_back(number);
        }
    }
    return found;
}

bool ZeroedTable::areFootersHit(const HitTable& damage, const std::string& part) const {
    return std::any_of(regions_.begin(), regions_.end(), [&](const TableRegion& region) {
        return region.name.starts_with(part) && damage.isHit(region.start, region.end);
    });
}

// What lookups go by was hit: the header's records, static indexes, or messages behind the last footer that is certain.
bool ZeroedTable::mayLookupsErr(const HitTable& damage) const {
    const std::size_t lastBlock = map_.blockStarts[map_.blockStarts.size() - 1];
    const std::size_t lastClosed = lastBlock < map_.openBlockStart ? lastBlock : *std::prev(map_.blockStarts.end(), 2);
    return areFootersHit(damage, "the header's records") || areFootersHit(damage, "the static indexes") ||
           std::any_of(regions_.begin(), regions_.end(), [&](const TableRegion& region) {
               return region.message != 0 && region.start > lastClosed && damage.isHit(region.start, region.end);
           });
}

std::vector<std::string> ZeroedTable::lookAt(const HitTable& damage, const Look& look) {
    guard_.begin(damage.name);
    faults_.clear();
    successes_ = 0;
    errors_ = 0;
    platform_.removeAll();
    filePlatform_install(&platform_.record());
    platform_.put(memoryPath(shape_), look.underReader ? image_ : damage.file);
    read(damage, look);
    if (look.writtenBeforeStart) {
        filePlatform_install(&startedSince_);
    }
    write(damage);
    filePlatform_install(&platform_.record());
    expectLimitsKept();
    log_.clear();
    return std::exchange(faults_, {});
}

void ZeroedTable::read(const HitTable& damage, const Look& look) {
    ErrorCode code = NO_ERROR;
    MessageTablePtr table = open(shape_, OpenMode::read, &code);
    if (look.underReader) {
        for (const Question& question : questions_) {
            question.ask(table.get());
        }
        platform_.put(memoryPath(shape_), damage.file);
    }
    count(code);
    if (code == NO_ERROR) {
        askAll(table.get(), damage,
               look.underReader ? " of the table that was open" : " of the table opened read-only");
    }
    table.reset();
    if (file() != damage.file || platform_.paths().size() != 1) {
        fault("reading it changed the files");
    }
}

void ZeroedTable::write(const HitTable& damage) {
    ErrorCode code = NO_ERROR;
    MessageTablePtr table = open(shape_, OpenMode::write, &code);
    count(code);
    if (code == OUT_OF_MEMORY_ERROR) {
        fault("opening it for writing ran out of memory");
    }
    if (code != NO_ERROR) {
        table.reset();
        return;
    }
    expectNothingLost(damage);
    askAll(table.get(), damage, " of the table opened for writing");
    writeOn(damage, std::move(table));
}

// Messages that are acknowledged are seen in a walk forward, unless it tells the damage, and first of all backward.
void ZeroedTable::writeOn(const HitTable& damage, MessageTablePtr table) {
    const Numbers kept = whole(damage, file(), false);
    for (std::size_t i = static_cast<std::size_t>(stored_); i < known_.size(); ++i) {
        const ErrorCode code = writeMessage(table.get(), known_[i]);
        if (code != NO_ERROR) {
            fault("writing on failed: " + std::string(getErrorMessage(code)));
        }
    }
    const Numbers written = numbersFrom(stored_ + 1, static_cast<std::int64_t>(known_.size()));
    Numbers required = kept;
    required.insert(required.end(), written.begin(), written.end());
    for (const bool closed : {false, true}) {
        const std::string how = closed ? " of the table that was written on" : " of the writer that has written on";
        if (closed) {
            ErrorCode code = mt_close(table.get());
            if (code != NO_ERROR) {
                fault("closing failed: " + std::string(getErrorMessage(code)));
            }
            table.reset();
            table = open(shape_, OpenMode::read, &code);
            if (code != NO_ERROR) {
                fault("the table that was written on does not open: " + std::string(getErrorMessage(code)));
                return;
            }
        }
        const Question& forward = questions_[FORWARD_WALK];
        judgeMessages(forward, forward.ask(table.get()), required, how);
        const Question& backward = questions_[BACKWARD_WALK];
        const Answer answer = backward.ask(table.get());
        judgeMessages(backward, answer, required, how);
        const auto end =
            answer.values.begin() + static_cast<std::ptrdiff_t>(std::min(written.size(), answer.values.size()));
        if (Numbers(answer.values.begin(), end) != Numbers(written.rbegin(), written.rend())) {
            fault("what was written on is not at the end" + how + ", but " + text(answer.values) + ", then " +
                  getErrorMessage(answer.code));
        }
    }
}

void ZeroedTable::askAll(MessageTable* table, const HitTable& damage, const std::string& how) {
    const Numbers all = whole(damage, file(), false);
    const Numbers decided = whole(damage, file(), true);
    const bool lookups = !mayLookupsErr(damage) && file().size() >= map_.dataEnd;
    for (std::size_t i = 0; i < questions_.size(); ++i) {
        const Question& question = questions_[i];
        const Answer answer = question.ask(table);
        count(answer.code);
        if (answer.code == OUT_OF_MEMORY_ERROR) {
            fault(question.name + how + " ran out of memory");
        }
        if (isLookup(question)) {
            if (lookups) {
                judgeLookup(question, answer, how);
            }
        } else {
            judgeMessages(question, answer, i <= BACKWARD_WALK ? all : decided, how);
        }
    }
    findIds(table, damage, how);
}

void ZeroedTable::judgeMessages(const Question& question, const Answer& answer, const Numbers& required,
                                const std::string& how) {
    const Numbers values = withoutForeign(answer.values);
    if (std::find(answer.values.begin(), answer.values.end(), NO_END) != answer.values.end()) {
        fault(question.name + how + " did not end");
    }
    const Numbers all = question.rightAnswer(numbersFrom(1, static_cast<std::int64_t>(known_.size())));
    if (!isSelection(values, all)) {
        fault(question.name + how + " delivered what it must not, or in another order: " + text(answer.values));
        return;
    }
    // Of those in front of the last one none was left out, however a walk forward has ended. Backward the end of the
    // data may be damaged, which is told at last.
    Numbers right = question.rightAnswer(required);
    if (answer.code != NO_ERROR || waits(question)) {
        std::erase_if(
            right, [&](std::int64_t number) { return question.backward || values.empty() || number > values.back(); });
    }
    if (!isSelection(right, values)) {
        fault(question.name + how + " left out what stands whole: " + text(answer.values) + ", then " +
              (answer.code == NO_ERROR ? "success" : getErrorMessage(answer.code)) + ", instead of " + text(right) +
              " at least");
    }
}

void ZeroedTable::judgeLookup(const Question& question, const Answer& answer, const std::string& how) {
    const Numbers right = question.rightAnswer(numbersFrom(1, stored_));
    if (answer.code == NO_ERROR && answer.values != right) {
        fault(question.name + how + ": " + text(answer.values) + " instead of " + text(right));
    }
}

// The place of an id has no message with that id, or one above it, in front of it.
void ZeroedTable::findIds(MessageTable* table, const HitTable& damage, const std::string& how) {
    const Numbers decided = whole(damage, file(), true);
    const std::int32_t ids[] = {
        std::numeric_limits<std::int32_t>::min(), 1, 3, 5, 8, stored_ - 1, stored_, stored_ + 1};
    for (const std::int32_t id : ids) {
        UniformPlace place;
        const ErrorCode code = mt_findUniformId(table, id, &place);
        count(code);
        if (code != NO_ERROR) {
            continue;
        }
        const std::int64_t frame = place.offset + place.skip;
        for (const std::int64_t number : decided) {
            if (number >= id && static_cast<std::int64_t>(map_.frame(static_cast<std::size_t>(number)).start) < frame) {
                fault("the place of id " + std::to_string(id) + how + " is byte " + std::to_string(frame) +
                      ", behind message " + std::to_string(number));
                break;
            }
        }
    }
}

// The frame of every message that was not hit stands where it stood, or in a copy beside the table.
void ZeroedTable::expectNothingLost(const HitTable& damage) {
    for (std::int64_t number = 1; number <= stored_; ++number) {
        const TableMap::Frame& frame = map_.frame(static_cast<std::size_t>(number));
        if (damage.isHit(frame.start, frame.end)) {
            continue;
        }
        const Bytes bytes = slice(image_, frame.start, frame.end);
        const bool kept = frame.end <= file().size() && slice(file(), frame.start, frame.end) == bytes;
        if (!kept && !isSavedBeside(platform_, memoryPath(shape_), bytes, frame.start)) {
            fault("message " + std::to_string(number) + ", which was not hit, is neither kept nor saved");
        }
    }
}

void ZeroedTable::expectLimitsKept() {
    if (platform_.openCount() != 0) {
        fault("a file was left open");
    }
    if (platform_.refusedSizes() != 0) {
        fault("a file was to grow without measure");
    }
    const std::string memory = guard_.memory();
    if (!memory.empty()) {
        fault(memory);
    }
}

}  // namespace tabulo::internal::test
