// What stands behind a Reader and everything that it has made.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "api/call.h"
#include "api/message_state.h"
#include "index/index_builder.h"
#include "messagetable/block_cursor.h"
#include "messagetable/message_table.h"
#include "tabulo/query.h"
#include "tabulo/reader.h"

namespace tabulo::api {

struct ReaderState {
    std::filesystem::path path;
    std::shared_ptr<TableState> table;
    internal::MessageTablePtr open;
    internal::BlockReaderPtr blocks;                // for look-ups of blocks
    std::unique_ptr<internal::IndexBuilder> index;  // that is kept for queries; null: none is
    // The block of the place that was checked last, and how many stand in front of it: the next place is often near.
    struct LedTo {
        std::int64_t block = 0;
        std::int64_t steps = 0;
    };
    mutable LedTo led{};
};

// The table at a path, with the layout that its file has. Throws what a Reader does.
std::shared_ptr<ReaderState> reader_open(const std::filesystem::path& path);
// What Reader::messages gives.
Messages reader_messages(const std::shared_ptr<ReaderState>& reader, const Query& query, Work work);

// Where the first message stands.
Position reader_begin(const ReaderState& reader) noexcept;
// Where the next message will stand. Throws the codes of mt_refresh.
Position reader_end(const Call& call, const ReaderState& reader);

// Throws vseek for a place at which no message stands or will stand, and what reading the block gives.
void reader_checkPlace(const Call& call, const ReaderState& reader, const Position& position);
// How many blocks stand in front of the one at this offset. Throws the codes of damage in front of it, and vseek when
// none begins there.
std::int64_t reader_blocksBefore(const Call& call, const ReaderState& reader, std::int64_t block);

}  // namespace tabulo::api
