// The side index of a message table: a file beside it from which a Reader, the Java classes and every tool find single
// messages and ranges at once, however large the table is.
//
// It is never needed and never an error: with and without it every query gives the same messages in the same order.
// Whatever is wrong with the file is noticed and left unused; it may be deleted at any time. A table that was dropped,
// recovered or replaced is recognised. What the index does not cover yet, the open block at least, is walked over.
//
// Nothing makes an index but an Indexer, Writer::keepIndex, Reader::keepIndex and `tabulo index`.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

#include "tabulo/table_info.h"

namespace tabulo {

namespace api {
struct IndexerState;
}  // namespace api

// The file of a table's index: the table's path with ".idx" behind it.
std::filesystem::path indexPath(const std::filesystem::path& table);

struct IndexInfo {
    std::int64_t blocks = 0;      // covered: the table's first ones
    std::int64_t messages = 0;    // in them
    std::int64_t coveredEnd = 0;  // file offset in the table behind them; 0 without any
    std::int64_t runs = 0;        // sorted parts, each of which a look-up reads
    std::int64_t bytes = 0;       // of the index's file

    bool operator==(const IndexInfo&) const noexcept = default;
};

// What a query of this moment would use; none without an index that belongs to what the table holds. The errors of
// opening the table.
std::optional<IndexInfo> inspectIndex(const std::filesystem::path& table);

// Builds the index of a table and keeps it up to date, beside the table's writer and readers. One Indexer at a time has
// an index. It can be stopped, or killed, at any point: the index then covers fewer blocks, and the next one goes on.
// One thread at a time uses it.
class Indexer {
  public:
    // The errors of opening the table for reading; fileOpen when another Indexer is at work, or the system does not let
    // the file be made; signature when a file of the index's name, or of that name with ".new" behind it, is no index:
    // it stays as it is.
    explicit Indexer(const std::filesystem::path& table);
    Indexer(Indexer&&) noexcept;
    Indexer& operator=(Indexer&&) noexcept;
    ~Indexer();

    // Covers every block that is closed by now, and merges what can be merged; up to the first damaged block. Work can
    // stop it: what was read so far is covered. The errors of reading the table; fileWrite when the index cannot be
    // written, which stays what it was.
    IndexInfo complete(const Work& work = {});
    // The same beside a writer, at less cost: new blocks are read, but written only from 16 on, and rarely merged.
    IndexInfo keepUp(const Work& work = {});
    // Waits until the table changes, at most for that long. False when the time is over or it was asked to stop.
    bool wait(std::chrono::milliseconds most, const std::stop_token& stop = {});

    IndexInfo info() const;

  private:
    std::unique_ptr<api::IndexerState> state_;
};

}  // namespace tabulo
