#include "tests/damage/table_damage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "tests/damage/saved_frames.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t WRITTEN_ON = 5;  // messages written behind the damage: they close a block
constexpr std::size_t FORWARD_WALK = 0;
constexpr std::size_t BACKWARD_WALK = 1;

bool isBeginning(const std::vector<std::int64_t>& part, const std::vector<std::int64_t>& whole) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

// The values of the part are among those of the whole, in its order.
bool isSelection(const std::vector<std::int64_t>& part, const std::vector<std::int64_t>& whole) {
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

std::string text(const std::vector<std::int64_t>& values) {
    std::string list = "[";
    for (const std::int64_t value : values) {
        list += (list.size() == 1 ? "" : " ") + std::to_string(value);
    }
    return list + "]";
}

// An opened table, or none and the code.
MessageTablePtr open(const TableShape& shape, OpenMode mode, ErrorCode* code) {
    MessageTablePtr table = createTable(MEMORY_ROOT, shape);
    *code = mt_open(table.get(), mode);
    return table;
}

}  // namespace

TableDamage::TableDamage(std::int32_t messageCount, TableEnd end)
    : messageCount_(messageCount),
      known_(damageMessages(messageCount + WRITTEN_ON)),
      map_(mapOf(shape_, stored())),
      regions_(regionsOf(shape_, stored())),
      questions_(tableQuestions(known_)) {
    image_ = writtenTable(&platform_, shape_, stored(), end);
    EXPECT_EQ(image_.size(), map_.dataEnd) << "the test's own map of the file is wrong";
    for (const Question& question : questions_) {
        rightAnswers_.push_back(question.rightAnswer(numbersFrom(1, messageCount_)));
    }
}

std::vector<Message> TableDamage::stored() const {
    return {known_.begin(), known_.begin() + messageCount_};
}

std::vector<std::int64_t> TableDamage::numbersFrom(std::int64_t first, std::int64_t last) const {
    std::vector<std::int64_t> numbers(static_cast<std::size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

bool TableDamage::isChecked(const Damage& damage) const {
    return std::all_of(regions_.begin(), regions_.end(), [&](const TableRegion& region) {
        return region.checked || region.end <= damage.start || region.start >= damage.end;
    });
}

std::string TableDamage::placeOf(const Damage& damage) const {
    std::string place;
    for (const TableRegion& region : regions_) {
        if (region.end > damage.start && region.start < damage.end) {
            place += (place.empty() ? "" : ", ") + region.name;
        }
    }
    return place;
}

bool TableDamage::isDamaged(std::int64_t number, const Damage& damage) const {
    const TableMap::Frame& frame = map_.frame(static_cast<std::size_t>(number));
    return frame.end > damage.start && frame.start < damage.end;
}

std::int64_t TableDamage::damagedMessages(const Damage& damage) const {
    const std::vector<std::int64_t> all = numbersFrom(1, messageCount_);
    return std::count_if(all.begin(), all.end(), [&](std::int64_t number) { return isDamaged(number, damage); });
}

void TableDamage::begin(const Damage& damage) {
    guard_.begin(damage.name);
    report_ = {};
    platform_.removeAll();
}

DamageReport TableDamage::end() {
    checkLimits();
    log_.clear();
    return std::move(report_);
}

DamageReport TableDamage::lookAt(const Damage& damage) {
    begin(damage);
    platform_.put(memoryPath(shape_), damage.file);
    read(damage);
    write(damage);
    return end();
}

DamageReport TableDamage::lookAtUnderReader(const Damage& damage) {
    begin(damage);
    platform_.put(memoryPath(shape_), image_);
    ErrorCode code = NO_ERROR;
    MessageTablePtr table = open(shape_, OpenMode::read, &code);
    for (const Question& question : questions_) {
        question.ask(table.get());
    }
    platform_.put(memoryPath(shape_), damage.file);
    const std::vector<std::int64_t> all = numbersFrom(1, messageCount_);
    for (const Question& question : questions_) {
        judge(question, question.ask(table.get()), all, damage, " of the table that was open when it was damaged");
    }
    table.reset();
    return end();
}

void TableDamage::read(const Damage& damage) {
    ErrorCode code = NO_ERROR;
    MessageTablePtr table = open(shape_, OpenMode::read, &code);
    if (code == OUT_OF_MEMORY_ERROR) {
        fault("opening it read-only ran out of memory");
    }
    report_.errors += code != NO_ERROR ? 1 : 0;
    if (code == NO_ERROR) {
        const std::vector<std::int64_t> all = numbersFrom(1, messageCount_);
        for (const Question& question : questions_) {
            judge(question, question.ask(table.get()), all, damage, " of the table opened read-only");
        }
    }
    table.reset();
    if (platform_.bytes(memoryPath(shape_)) != damage.file || platform_.paths().size() != 1) {
        fault("reading it changed the files");
    }
}

void TableDamage::write(const Damage& damage) {
    ErrorCode code = NO_ERROR;
    MessageTablePtr table = open(shape_, OpenMode::write, &code);
    if (code != NO_ERROR) {
        report_.errors += 1;
        table.reset();
        if (code == OUT_OF_MEMORY_ERROR) {
            fault("opening it for writing ran out of memory");
        }
        if (platform_.bytes(memoryPath(shape_)) != damage.file) {
            fault("the refused opening for writing (" + std::string(getErrorMessage(code)) + ") changed the file");
        }
        return;
    }
    expectNothingLost(damage);
    // What recovery has kept is what is there from here on; the messages it had to cut are saved beside the table.
    const Answer walk = questions_[FORWARD_WALK].ask(table.get());
    const std::vector<std::int64_t> all = numbersFrom(1, messageCount_);
    const bool keptSome = walk.code == NO_ERROR && isBeginning(walk.values, all);
    const std::vector<std::int64_t> present = keptSome ? walk.values : all;
    for (std::size_t i = 0; i < questions_.size(); ++i) {
        judge(questions_[i], i == FORWARD_WALK ? walk : questions_[i].ask(table.get()), present, damage,
              " of the table opened for writing");
    }
    for (std::int32_t i = 0; i < WRITTEN_ON; ++i) {
        code = writeMessage(table.get(), known_[static_cast<std::size_t>(messageCount_ + i)]);
        if (code != NO_ERROR) {
            fault("writing on failed: " + std::string(getErrorMessage(code)));
        }
    }
    code = mt_close(table.get());
    if (code != NO_ERROR) {
        fault("closing failed: " + std::string(getErrorMessage(code)));
    }
    table.reset();
    writeOn(present, damage);
}

// After five more messages and a close: they are there, behind what was there before.
void TableDamage::writeOn(std::vector<std::int64_t> present, const Damage& damage) {
    const std::vector<std::int64_t> written = numbersFrom(messageCount_ + 1, messageCount_ + WRITTEN_ON);
    present.insert(present.end(), written.begin(), written.end());
    ErrorCode code = NO_ERROR;
    MessageTablePtr table = open(shape_, OpenMode::read, &code);
    if (code != NO_ERROR) {
        fault("the table that was written on does not open: " + std::string(getErrorMessage(code)));
        return;
    }
    judge(questions_[FORWARD_WALK], questions_[FORWARD_WALK].ask(table.get()), present, damage,
          " of the table that was written on");
    const Answer backward = questions_[BACKWARD_WALK].ask(table.get());
    judge(questions_[BACKWARD_WALK], backward, present, damage, " of the table that was written on");
    if (!isBeginning({written.rbegin(), written.rend()}, backward.values)) {
        fault("what was written on is not at the table's end, but " + text(backward.values));
    }
}

// The frame of every message that the damage has not hit stands where it stood, or in a copy beside the table.
void TableDamage::expectNothingLost(const Damage& damage) {
    const Bytes& file = platform_.bytes(memoryPath(shape_));
    for (std::int64_t number = 1; number <= messageCount_; ++number) {
        const TableMap::Frame& frame = map_.frame(static_cast<std::size_t>(number));
        if (isDamaged(number, damage)) {
            continue;
        }
        const auto begin = image_.begin() + static_cast<std::ptrdiff_t>(frame.start);
        const auto end = image_.begin() + static_cast<std::ptrdiff_t>(frame.end);
        const bool kept =
            frame.end <= file.size() && std::equal(begin, end, file.begin() + static_cast<std::ptrdiff_t>(frame.start));
        if (!kept && !isSavedBeside(platform_, memoryPath(shape_), Bytes(begin, end), frame.start)) {
            fault("message " + std::to_string(number) + ", which was not damaged, is neither kept nor saved");
        }
    }
}

void TableDamage::judge(const Question& question, const Answer& answer, const std::vector<std::int64_t>& present,
                        const Damage& damage, const std::string& how) {
    const auto index = static_cast<std::size_t>(&question - questions_.data());
    const bool allPresent = static_cast<std::int32_t>(present.size()) == messageCount_;
    const std::vector<std::int64_t> right = allPresent ? rightAnswers_[index] : question.rightAnswer(present);
    (answer.code == NO_ERROR ? report_.answers : report_.errors) += 1;
    if (answer.code == OUT_OF_MEMORY_ERROR) {
        fault(question.name + how + " ran out of memory");
    }
    if (std::find(answer.values.begin(), answer.values.end(), NO_END) != answer.values.end()) {
        fault(question.name + how + " did not end");
    }
    const auto foreign = std::count(answer.values.begin(), answer.values.end(), FOREIGN_MESSAGE);
    if (foreign > damagedMessages(damage)) {
        fault(question.name + how + " delivered a message that was never written");
    }
    const bool isPart = question.backward ? isSelection(answer.values, right) : isBeginning(answer.values, right);
    if (answer.code == NO_ERROR ? answer.values != right : !isPart) {
        report_.wrongAnswers += 1;
        if (isChecked(damage)) {
            report_.wrong.push_back(
                question.name + how + ": " + text(answer.values) + " instead of " + text(right) +
                (answer.code == NO_ERROR ? "" : std::string(", then ") + getErrorMessage(answer.code)));
        }
    }
}

void TableDamage::checkLimits() {
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

bool tooManyFailures() {
    constexpr int ENOUGH = 20;
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count() > ENOUGH;
}

void expectAcceptable(const DamageReport& report, const Damage& damage, const std::string& place) {
    for (const std::string& fault : report.faults) {
        ADD_FAILURE() << damage.name << " (in " << place << "): " << fault;
    }
    for (const std::string& wrong : report.wrong) {
        ADD_FAILURE() << damage.name << " (in " << place << "): wrong without an error: " << wrong;
    }
}

}  // namespace tabulo::internal::test
