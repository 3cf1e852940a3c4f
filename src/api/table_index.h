// Building a table's side index for an Indexer, a Writer or a Reader.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "api/call.h"
#include "index/index_builder.h"
#include "messagetable/message_table.h"
#include "tabulo/table_info.h"

namespace tabulo::api {

// The fewest blocks that are covered: any, with all merges that pay; or as many as make a run while a table is
// followed.
inline constexpr std::uint32_t EVERY_BLOCK = 1;
inline constexpr std::uint32_t FOLLOWED_BLOCKS = internal::FOLLOWED_RUN_BLOCKS;

// Opens and locks the index of an open table. Throws what the constructor of an Indexer tells of the index.
std::unique_ptr<internal::IndexBuilder> tableIndex_open(const Call& call, const std::filesystem::path& path,
                                                        const internal::MessageTable* table);
// Covers what has been closed, when it is at least so many blocks, and merges when every block is to be covered or too
// many runs have gathered. Throws what Indexer::complete does.
void tableIndex_update(const Call& call, internal::IndexBuilder* builder, internal::MessageTable* table,
                       std::uint32_t fewest, const Work& work);

}  // namespace tabulo::api
