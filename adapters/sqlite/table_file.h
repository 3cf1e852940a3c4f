// One message table's file, as the statements of a connection see it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/times.h"

namespace tabulo::sqlite {

class TableFile {
  public:
    // Opens the table. The errors of a Reader; tableType for a session info table.
    explicit TableFile(std::filesystem::path path);

    // A statement begins that sees what the file holds now: opens it anew when another file stands at its path. The
    // errors of a Reader; configMismatch when that one has other fields, and may not.
    void look(bool mayHaveOtherFields);

    Reader& reader() noexcept { return reader_; }
    const std::string& path() const noexcept { return pathText_; }
    const std::string& name() const { return reader_.table(); }
    // Where the data ended at the last look; none when damage stands there, which is told when it is reached.
    const std::optional<Position>& end() const noexcept { return end_; }
    // The unit of its times, guessed from its newest one; none when none can be guessed.
    std::optional<TimeUnit> unit() const noexcept { return unit_; }

    // About how many messages it holds, for the choice of a plan.
    double messageCount();
    bool hasIndex();

    // What of a message rows are ordered by.
    enum class Key { uniformId, time };
    // Whether the ranges of the blocks ascend by the key and do not overlap, up to the end of the last look.
    bool isOrdered(Key key);
    // Whether all times up to there lie between these, included.
    bool hasTimesWithin(std::int64_t first, std::int64_t last);

  private:
    struct Ranges {
        ValueRange<std::int32_t> uniformIds;
        ValueRange<std::int64_t> times;
        bool uniformIdsAscend = true;
        bool timesAscend = true;
        bool isWhole = true;  // no damage
        std::int64_t firstTime = INT64_MAX;
        std::int64_t lastTime = INT64_MIN;
    };
    struct Identity {
        dev_t device = 0;
        ino_t number = 0;
        bool operator==(const Identity&) const noexcept = default;
    };

    Identity identity() const;
    void readBlocks();
    void take(const BlockRecord& block, Ranges* ranges) const;

    std::filesystem::path path_;
    std::string pathText_;
    Identity identity_;
    Reader reader_;
    std::optional<Position> end_;
    std::optional<TimeUnit> unit_;
    // Of the blocks in front of `last_`, which is read again when the file has grown.
    Ranges closed_;
    Ranges all_;
    std::optional<BlockRecord> last_;
    std::optional<Position> rangesEnd_;  // the end for which they were read
};

}  // namespace tabulo::sqlite
