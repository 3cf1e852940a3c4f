// One message table that is shipped: what the stream holds of it, beside what its file holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/table_bytes.h"
#include "tabulo/reader.h"

namespace tabulo::shipping {

// What a table's newest record in the stream says. Nothing stands in the file in front of `next` that was not shipped.
struct Shipped {
    RecordKind kind = RecordKind::layout;
    std::int64_t incarnation = 0;  // 0: the stream has no record of the table
    std::uint64_t sequence = 0;
    std::int32_t uniformId = 0;
    // Bytes that the file holds if it is still the one that was shipped, and where; none when none was shipped yet.
    std::vector<std::byte> bytes{};
    std::int64_t bytesAt = 0;
    std::int64_t frameAt = 0;  // the frame that they are of
    bool isWhole = true;       // all parts of that frame are in the stream
};

// How the file has gone on since.
enum class Since {
    same,     // it holds what was shipped
    missing,  // there is no file
    dropped,  // it begins with something else, or with nothing: it was emptied or replaced
    rewound,  // it begins with what was shipped, but does not hold all of it any more
};

class SourceTable {
  public:
    explicit SourceTable(std::filesystem::path path);

    const std::filesystem::path& path() const noexcept { return path_; }
    const std::string& name() const noexcept { return name_; }

    // Asks the stream, and compares. Unreachable, ForeignRecord, the errors of a Reader.
    Shipped ask(LogStream& stream) const;
    Since compare(LogStream& stream, const Shipped& shipped) const;
    // Where the file goes on behind what was shipped, and how many messages stand in front of that. The errors of a
    // Reader; vseek when no message stands where the stream says.
    struct Place {
        Position position;
        std::int64_t messages = 0;
    };
    Place placeBehind(const Shipped& shipped) const;

    // The newest record, going back from `shipped`, of which the file holds the bytes; kind layout when there is none.
    // `lost` gets the smallest and the largest uniform id of those behind it.
    Shipped newestCommon(LogStream& stream, const Shipped& shipped, ValueRange<std::int32_t>* lost) const;

  private:
    std::filesystem::path path_;
    std::string name_;
};

}  // namespace tabulo::shipping
