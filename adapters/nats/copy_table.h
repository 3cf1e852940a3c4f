// One message table that is received: the copy of a table of another machine, byte for byte.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "adapters/nats/record.h"
#include "adapters/nats/words.h"
#include "tabulo/writer.h"

namespace tabulo::shipping {

// Why a table cannot be gone on with; the text names it and says what to do.
struct CopyRefused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A record does not follow what the copy has: what is noted of the copy may be wrong, and the stream is to be read
// again from where the table's content begins. The text says what is wrong if it is not.
struct CopyBehind : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Every operation throws CopyRefused, CopyBehind and the errors of a Writer.
class CopyTable {
  public:
    // `incarnation`: that of what stands in the file, 0 when it is not known.
    CopyTable(std::filesystem::path path, std::int64_t incarnation, Words words);

    // A record of the kind layout, message, drop or rewind. What was applied before is compared with the file.
    void apply(const Record& record);
    // Appends what is gathered.
    void flush();
    // Saves the header; the next record opens the table again.
    void close();

    // True when the record changes more than the table's end, so that what stands in front of it is to be noted first.
    bool isTurn(const Record& record) const noexcept;
    std::int64_t incarnation() const noexcept { return incarnation_; }
    // Where the file ends, as far as it was appended to; 0 when that is not known.
    std::int64_t end() const;
    // Whether parts of a message have come and not all of them.
    bool isAmidMessage() const noexcept { return partsOffset_ >= 0; }

  private:
    void takeLayout(const Record& record);
    void takeFrame(const Record& record);
    void drop();
    void rewind(const Record& record);
    void save(std::int64_t from) const;
    std::string elsewhere(std::int64_t offset) const;
    bool open();
    bool isEmpty() const;
    Writer& writer();

    std::filesystem::path path_;
    std::int64_t incarnation_;
    Words words_;
    std::optional<Writer> writer_;
    std::vector<std::byte> batch_;  // frames that follow one another without a gap
    std::int64_t batchEnd_ = 0;
    std::vector<std::byte> parts_;  // of one frame, as far as they have come
    std::int64_t partsOffset_ = -1;
};

}  // namespace tabulo::shipping
