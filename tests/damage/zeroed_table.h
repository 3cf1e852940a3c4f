// A table whose damaged copies are asked everything: whatever ends with success has left out no message that stands
// whole in a closed block.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/damage/block_damage.h"
#include "tests/damage/damage_guard.h"
#include "tests/damage/damage_messages.h"
#include "tests/damage/memory_table.h"
#include "tests/damage/table_questions.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_platform.h"

namespace tabulo::internal::test {

// How a damaged file is looked at.
struct Look {
    bool underReader = false;         // damaged under a table that is open read-only and has answered already
    bool writtenBeforeStart = false;  // the machine was started since the file was written
};

class ZeroedTable {
  public:
    // A table with the first `stored` of the messages; the others are written later.
    ZeroedTable(std::vector<Message> known, std::int32_t stored, TableEnd end);
    ~ZeroedTable();
    ZeroedTable(const ZeroedTable&) = delete;
    ZeroedTable& operator=(const ZeroedTable&) = delete;

    const Bytes& image() const { return image_; }
    const TableMap& map() const { return map_; }
    const std::vector<TableRegion>& regions() const { return regions_; }

    // Asks the damaged table everything, read-only and, on the file itself, for writing, then writes on. What must
    // never be, in words.
    std::vector<std::string> lookAt(const HitTable& damage, const Look& look);
    // Answers of the last look.
    int successes() const { return successes_; }
    int errors() const { return errors_; }

  private:
    using Numbers = std::vector<std::int64_t>;

    std::vector<Message> stored() const;
    // The messages of closed blocks that were not hit and stand in this file, where they stood. With `byFooters` only
    // those whose block's ranges and filters were not hit either: a query may pass their block.
    Numbers whole(const HitTable& damage, const Bytes& file, bool byFooters) const;
    bool areFootersHit(const HitTable& damage, const std::string& part) const;
    bool mayLookupsErr(const HitTable& damage) const;
    void read(const HitTable& damage, const Look& look);
    void write(const HitTable& damage);
    void writeOn(const HitTable& damage, MessageTablePtr table);
    void askAll(MessageTable* table, const HitTable& damage, const std::string& how);
    void judgeMessages(const Question& question, const Answer& answer, const Numbers& required, const std::string& how);
    void judgeLookup(const Question& question, const Answer& answer, const std::string& how);
    void findIds(MessageTable* table, const HitTable& damage, const std::string& how);
    void expectNothingLost(const HitTable& damage);
    void expectLimitsKept();
    void count(ErrorCode code) { (code == NO_ERROR ? successes_ : errors_) += 1; }
    void fault(const std::string& sentence) { faults_.push_back(sentence); }
    const Bytes& file() const { return platform_.bytes(memoryPath(shape_)); }

    MemoryPlatform platform_;
    FilePlatform startedSince_;  // the same, for files that were written before the machine was started
    LogCapture log_;
    const TableShape shape_ = damageShape();
    const std::vector<Message> known_;
    const std::int32_t stored_;
    const TableMap map_;
    const std::vector<TableRegion> regions_;
    std::vector<Question> questions_;
    Bytes image_;
    DamageGuard guard_;
    std::vector<std::string> faults_;
    int successes_ = 0;
    int errors_ = 0;
};

}  // namespace tabulo::internal::test
