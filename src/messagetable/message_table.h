// A message table: an append-only log of FIX messages in one file (or one file per replica).
//
// Created (mt_create) -> open (mt_open) -> messages written -> closed (mt_close saves the header's tail) -> destroyed,
// which releases the file and its lock. One thread at a time uses a table; a writer and any number of readers in other
// processes may have the same file open. A table opened read-only follows the file: every lookup refreshes its view.
//
// mt_readMessages and the lookups are in message_read.h and message_lookup.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "core/error_codes.h"
#include "core/handle.h"
#include "messagetable/block_writer.h"
#include "messagetable/frame_place.h"
#include "messagetable/header_tail.h"
#include "messagetable/known_blocks.h"
#include "messagetable/message.h"
#include "messagetable/table_header.h"
#include "messagetable/table_view.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

// Its members are for message_table.cpp alone.
struct MessageTable {
    TableStoragePtr storage;
    HeaderTailPtr tail;  // made when a file is opened
    BlockWriterPtr writer;
    TableView view;             // of a table that is open read-only
    MessageTableHeader header;  // layout and names of the configuration
    TailRecords records;        // what is saved and what lookups answer
    KnownBlocks known;          // what readers have seen
    std::shared_ptr<void> sideIndex;
    bool usesSideIndex = true;
    bool opened = false;            // the last open succeeded
    std::int32_t uses = 0;          // operations under way that call back (MessageTableUse)
    bool destroyRequested = false;  // mt_destroy was called by such a callback
};

// A table without files, owned by the caller. The configuration is the table's in every case. Null for a null
// configuration, an impossible layout, or when memory is short.
MessageTable* mt_create(KSVTboTableConfig* config) noexcept;
// Closes what is open, without saving the tail, and frees everything; null is accepted. Called from inside a callback
// of the table, it closes the files at once, and the memory goes when the operation that called back ends.
void mt_destroy(MessageTable* table) noexcept;
using MessageTablePtr = Handle<MessageTable, mt_destroy>;

// Held by an operation that calls back while it uses a table: the callback may drop, close or destroy the table.
class MessageTableUse {
  public:
    explicit MessageTableUse(MessageTable* table) noexcept;
    ~MessageTableUse();
    MessageTableUse(const MessageTableUse&) = delete;
    MessageTableUse& operator=(const MessageTableUse&) = delete;

  private:
    MessageTable* table_;
};

// Opens the files in a mode of tableFileOpen; an open table is closed first. NULL_POINTER_ERROR; the codes of
// tableStorage_init and of the section's checks: TABLE_TYPE_ERROR, HEADER_CORRUPTED_ERROR, CONFIG_MISMATCH_ERROR, the
// count and name mismatches (codes 34 to 37); STREAM_NOT_ENOUGH_DATA_ERROR for a read-only file whose section is cut,
// STREAM_READ_RESET_ERROR when it ends with the generic header.
// A file that was not closed cleanly is recovered when it is opened for writing.
ErrorCode mt_open(MessageTable* table, OpenMode mode) noexcept;
// Saves the header's tail of a table that is open for writing; nothing otherwise, also when a failed write has closed
// its file. The files stay open. NULL_POINTER_ERROR; the codes of tv_saveData.
ErrorCode mt_close(MessageTable* table) noexcept;
// Empties the table: cuts its files to their headers and creates them anew. NULL_POINTER_ERROR; READ_ONLY_ERROR;
// MASTER_INACTIVE_ERROR without an active file; the codes of mt_truncateStorage and mt_open. When the files cannot be
// created again the table is left closed.
ErrorCode mt_drop(MessageTable* table) noexcept;
// Cuts the files back to their headers. NULL_POINTER_ERROR, the codes of tableFileTruncate. Called here only: by
// mt_drop, which also makes the table usable again.
ErrorCode mt_truncateStorage(MessageTable* table) noexcept;

// Appends one message. Its field counts must be the layout's; a field of length 0 is absent, its text may be null.
// NULL_POINTER_ERROR: table, or a text with a length; STRING_FIELDS_COUNT_MISMATCH_ERROR,
// NUMERIC_FIELDS_COUNT_MISMATCH_ERROR; READ_ONLY_ERROR; WRONG_PARAMETER_ERROR: a negative length, an unknown numeric
// type; the codes of mfr_writeMessage. After these nothing has changed. When the message fills a block and saving the
// header's tail fails, that code is returned although the message is stored: it must not be sent to the table again.
ErrorCode mt_writeMessage(MessageTable* table, const MessageView& message) noexcept;
// Appends a message given as one encoded frame; bytes behind the frame are ignored. NULL_POINTER_ERROR;
// STREAM_WRITE_RESET_ERROR for a negative length; NO_DATA_ERROR for a cut frame; CONSISTENCY_ERROR for lengths that
// disagree or an unknown numeric type; then as mt_writeMessage.
ErrorCode mt_writeRawMessage(MessageTable* table, const void* buffer, std::int32_t length) noexcept;

// Appends messages given as encoded frames that stand one behind the other, with one write for each block that they
// reach; the file becomes the one that mt_writeRawMessage for each would make, but that each frame is stored as it is
// given (blockWriter_writeFrames). *stored is how many of them are in the
// file, also after a failure: each write is there as a whole or not at all. NULL_POINTER_ERROR; READ_ONLY_ERROR;
// NO_DATA_ERROR and CONSISTENCY_ERROR, with *offset at the first frame that is not whole and sound, and nothing stored;
// then as mt_writeMessage.
ErrorCode mt_writeRawMessages(MessageTable* table, std::span<const std::uint8_t> frames, std::size_t* offset,
                              std::int64_t* stored) noexcept;

// Commits a table that is open for writing to the disk, whatever the sync policy. NULL_POINTER_ERROR; READ_ONLY_ERROR;
// MASTER_INACTIVE_ERROR without an active file; FILE_FLUSH_ERROR when the system refuses.
ErrorCode mt_commit(MessageTable* table) noexcept;
// Closes the files without saving the tail; the table stays, and may be opened again. NULL_POINTER_ERROR; the codes of
// tableStorage_uninit, with the files closed nevertheless.
ErrorCode mt_closeFiles(MessageTable* table) noexcept;

// Brings a read-only table's view to what its file holds now: the open block's place and the static indexes, also those
// of messages behind the writer's last tail save. Does nothing for a table opened for writing, whose memory is current.
// NULL_POINTER_ERROR; MASTER_INACTIVE_ERROR without an active file; the codes of tableView_refresh.
ErrorCode mt_refresh(MessageTable* table) noexcept;

// What others may know of a table, which must not be null.
TableStorage* mt_storage(const MessageTable* table) noexcept;
const MessageTableLayout& mt_layout(const MessageTable* table) noexcept;
// What lookups answer; mt_refresh brings it up to date.
const mthStaticIndexes& mt_staticIndexes(const MessageTable* table) noexcept;
// The offset behind the last message that this table, open for writing, has stored.
std::int64_t mt_dataEnd(const MessageTable* table) noexcept;
// Where the next message will stand; mt_refresh brings it up to date.
FramePlace mt_nextPlace(const MessageTable* table) noexcept;
// The offset at which the open block begins: lastBlockEnd, or the header's end for a table without closed blocks.
std::int64_t mt_openBlockStart(const MessageTable* table) noexcept;
// What the table's readers have seen of its closed blocks since its files were opened; for them to add to.
KnownBlocks& mt_knownBlocks(MessageTable* table) noexcept;
// What was read of the side index (index/side_index.h) for the last query; null at first. For it alone.
std::shared_ptr<void>& mt_sideIndex(MessageTable* table) noexcept;
// Whether queries look for a side index; they do at first.
void mt_useSideIndex(MessageTable* table, bool use) noexcept;
bool mt_usesSideIndex(const MessageTable* table) noexcept;
// True when a callback has asked to destroy the table that is still in use (MessageTableUse).
bool mt_isDestroyed(const MessageTable* table) noexcept;

}  // namespace tabulo::internal
