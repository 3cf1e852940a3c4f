// Builds the side index of a table, and keeps it up to date: beside writers and readers, one builder at a time.
//
// Runs are appended to the file, then its slot is written; a stopped builder leaves an index of fewer blocks, and the
// next one goes on. Runs are merged so that each is several times as long as what follows it. A merged run is appended,
// too, for as long as what it leaves behind as garbage is a small part of the file; otherwise a new file is made under
// INDEX_NEW_SUFFIX and takes the index's name.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/error_codes.h"
#include "index/index_slot.h"
#include "index/run_content.h"
#include "messagetable/message_table.h"
#include "storage/file_stream.h"

namespace tabulo::internal {

inline constexpr std::string_view INDEX_NEW_SUFFIX = ".idx.new";
// Blocks of a run that is written while a table is followed.
inline constexpr std::uint32_t FOLLOWED_RUN_BLOCKS = 16;
// A run has no more messages than this before it is merged, unless a single block has: they are sorted in memory, with
// 8 bytes for each text and id.
inline constexpr std::uint64_t RUN_MESSAGES = 1'000'000;

// Asked between blocks, with the file offset and the number of messages that the builder has come to, whether to go on.
struct IndexProgress {
    void* owner = nullptr;
    bool (*goOn)(void* owner, std::int64_t offset, std::int64_t messages) = nullptr;
};

// An open file of an index, locked; closed with its owner. What was written is handed over before.
struct IndexFileCloser {
    void operator()(FileStream* file) const noexcept;
};
using IndexFile = std::unique_ptr<FileStream, IndexFileCloser>;

class IndexBuilder {
  public:
    // For the table at a path, with this layout. Throws std::bad_alloc.
    IndexBuilder(std::string tablePath, const MessageTableLayout& layout);
    IndexBuilder(const IndexBuilder&) = delete;
    IndexBuilder& operator=(const IndexBuilder&) = delete;

    // Opens the index, or begins one, and locks it. FILE_OPEN_ERROR: the system refuses, or another builder has it
    // (isLocked); SIGNATURE_ERROR: a file of that name is not an index, or that of INDEX_NEW_SUFFIX is not one;
    // FILE_WRITE_ERROR, FILE_READ_ERROR. Throws std::bad_alloc.
    ErrorCode open();
    // True when open has failed because another builder works.
    bool isLocked() const noexcept { return locked_; }
    // Reads the closed blocks that are not covered yet, up to the first that is damaged, and covers them when they are
    // at least this many; others are kept for the next time. An index that does not belong to the table any more is
    // begun anew, and one that was deleted is opened again. MASTER_INACTIVE_ERROR without an active file; the codes of
    // reading the table; FILE_WRITE_ERROR, FILE_OPEN_ERROR, SIGNATURE_ERROR (as open): the index is then what it was.
    // Throws std::bad_alloc.
    ErrorCode update(MessageTable* table, std::uint32_t fewest, const IndexProgress& progress);
    // Merges runs until each is RUN_RATIO times as long as the next one. The codes of writing, as update;
    // FILE_READ_ERROR when the index cannot be opened. Where a page of a run is damaged the index is begun anew: it
    // then covers nothing.
    ErrorCode merge();

    const IndexSlot& slot() const noexcept { return slot_; }
    // Of the file, with its garbage.
    std::uint64_t bytes() const noexcept { return std::uint64_t{pages_} * INDEX_PAGE_SIZE; }
    bool isMergeDue() const noexcept { return slot_.runs.size() > MOST_RUNS; }

  private:
    static constexpr std::size_t MOST_RUNS = 8;
    static constexpr std::uint64_t RUN_RATIO = 4;

    ErrorCode takeOver();
    ErrorCode keepName();
    void forgetRead() noexcept;
    ErrorCode beginAnew();
    ErrorCode makeFile(FileStream* file, const IndexSlot& slot);
    ErrorCode takeName(IndexFile made);
    ErrorCode follow(MessageTable* table, TableFile* file);
    ErrorCode readBlocks(MessageTable* table, TableFile* file, const IndexProgress& progress);
    ErrorCode cover(MessageTable* table, TableFile* file);
    ErrorCode save(FileStream* file, IndexSlot slot, std::uint32_t pages);
    ErrorCode mergeFrom(std::size_t first, IndexPages* pages);

    std::string tablePath_;
    std::string path_;
    std::string newPath_;
    MessageTableLayout layout_;
    IndexFile file_;
    IndexSlot slot_;
    std::uint32_t pages_ = INDEX_SLOTS;  // of the file, as far as they are its own
    bool locked_ = false;
    RunContent content_;  // blocks that were read and are not covered yet
    std::int64_t readEnd_ = 0;
    std::uint64_t readFooter_ = 0;           // of the last of them
    std::optional<std::uint64_t> identity_;  // of the table when they were read
    BlockReaderPtr reader_;
};

}  // namespace tabulo::internal
