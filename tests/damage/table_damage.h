// A small message table that tests damage byte by byte: what the library makes of each damage, and whether it may.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/damage/damage_guard.h"
#include "tests/damage/damage_messages.h"
#include "tests/damage/memory_table.h"
#include "tests/damage/table_questions.h"
#include "tests/damage/table_regions.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_platform.h"

namespace tabulo::internal::test {

struct Damage {
    Bytes file;             // as damaged
    std::size_t start = 0;  // of the bytes that differ
    std::size_t end = 0;
    std::string name;
};

// What was seen of one damage.
struct DamageReport {
    int answers = 0;  // given without an error
    int errors = 0;
    // Never allowed: files changed by readers, messages lost that were not damaged, memory or descriptors, no end.
    std::vector<std::string> faults;
    // Answers without an error that are not the right ones, in words where the damaged bytes are checked ones.
    int wrongAnswers = 0;
    std::vector<std::string> wrong;
};

class TableDamage {
  public:
    TableDamage(std::int32_t messageCount, TableEnd end);

    const Bytes& image() const { return image_; }
    const std::vector<TableRegion>& regions() const { return regions_; }
    // Numbers that say lengths, counts and places.
    std::vector<TableNumber> numbers() const { return numbersOf(shape_, stored()); }
    // Every byte of the damage is one that a reader can compare with another.
    bool isChecked(const Damage& damage) const;
    // The names of the regions that it lies in.
    std::string placeOf(const Damage& damage) const;

    // Opens the damaged file read-only and for writing (on the file itself), asks all there is to ask, writes on and
    // reopens.
    DamageReport lookAt(const Damage& damage);
    // Damages the file under a table that is open read-only and has answered already, and asks all there is to ask.
    DamageReport lookAtUnderReader(const Damage& damage);

  private:
    std::vector<Message> stored() const;
    std::vector<std::int64_t> numbersFrom(std::int64_t first, std::int64_t last) const;
    bool isDamaged(std::int64_t number, const Damage& damage) const;
    std::int64_t damagedMessages(const Damage& damage) const;
    void begin(const Damage& damage);
    DamageReport end();
    void read(const Damage& damage);
    void write(const Damage& damage);
    void writeOn(std::vector<std::int64_t> present, const Damage& damage);
    void expectNothingLost(const Damage& damage);
    void judge(const Question& question, const Answer& answer, const std::vector<std::int64_t>& present,
               const Damage& damage, const std::string& how);
    void checkLimits();
    void fault(const std::string& sentence) { report_.faults.push_back(sentence); }

    MemoryPlatform platform_;
    LogCapture log_;
    const TableShape shape_ = damageShape();
    const std::int32_t messageCount_;
    const std::vector<Message> known_;  // the stored ones, and behind them those that are written later
    const TableMap map_;
    const std::vector<TableRegion> regions_;
    std::vector<Question> questions_;
    std::vector<std::vector<std::int64_t>> rightAnswers_;  // with all stored messages present
    Bytes image_;
    DamageGuard guard_;
    DamageReport report_;
};

// True when the test that runs has failed so often that further failures tell nothing new.
bool tooManyFailures();
// Fails the test for each fault of a report, and for each wrong answer that it has words for.
void expectAcceptable(const DamageReport& report, const Damage& damage, const std::string& place);

}  // namespace tabulo::internal::test
