// Walks one message table, forward from its first message or backward from its end, and stops at each message that
// meets the conditions of a query.
//
// An iterator kept open beside a writer goes on where it stopped: forward it never passes the open block, and delivers
// every message once, across block closings; backward it walks what was there when it reached each block. A closed
// block is asked about once, by its footer, and skipped when no message of it can match. A table that is dropped under
// an iterator ends it for good: always when dropped through the same table object, otherwise as soon as the file is
// seen to be shorter than the iterator's place (a file that has grown past that place again cannot be told from the old
// one).
//
// The table must outlive the iterator; both are used by one thread at a time.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "core/handle.h"
#include "messagetable/block_cursor.h"
#include "messagetable/frame_cursor.h"
#include "messagetable/frame_place.h"
#include "messagetable/message_table.h"
#include "messagetable/message_visitor.h"
#include "query/indexed_walk.h"
#include "query/query_conditions.h"

namespace tabulo::internal {

// Where an iterator stands.
enum class IteratorPlace {
    beforeStart,    // a walk backward has not found the block that it begins at
    betweenBlocks,  // the cursor's next step gives the next block
    inBlock,        // at the frames of the block at hand
    done,           // nothing will come any more
    gone,           // neither: the table was dropped under the iterator
};

struct MessageTableIterator {
    MessageTable* table = nullptr;  // borrowed
    BlockReaderPtr reader;
    QueryConditionsPtr conditions;
    MessageVisitor match;       // query_match or query_matchInverted
    bool asksKnown = false;     // blocks may be left unread for what the table knows of them
    BlockSummary knownSummary;  // of the known block, or of those in an index, that is asked about
    IndexedWalk indexed;
    IteratorPlace place = IteratorPlace::betweenBlocks;
    BlockCursor cursor;
    FrameCursor frames;             // of the block at hand
    std::int32_t indexInBlock = 0;  // messages of it that have been looked at
    // The current message; counts are 0 when there is none. Texts point into the reader's buffer. A walk decodes each
    // message into it, so that a match is not copied.
    DecodedMessage current;
    std::int32_t stringValueCount = 0;
    std::int32_t numericValueCount = 0;
    bool startIsLast = false;      // a walk backward begins at the block at the cursor, not at the open one
    std::int64_t firstBlock = 0;   // a walk backward ends with the block at this file offset,
    std::int64_t end = INT64_MAX;  // and one forward before the block that would begin its frames there
    ErrorCode endCode = NO_ERROR;  // what a backward walk returns when it has delivered all it could
    std::int64_t endOffset = 0;    // and where in the file that is
    std::int64_t openings = 0;     // of the table's storage, when the iterator was opened
};

// An iterator over the table, owned by the caller. It owns the conditions from this call on, also when it fails: null
// for a null argument, when memory is short, or when a backward iterator's refresh fails.
MessageTableIterator* mtIterator_open(MessageTable* table, QueryConditions* conditions) noexcept;
// The same between two places, which are known to be such: of blocks outside none is read. Its visitor takes the place
// of query_match's and decides alone: onBlock about closed blocks, onMessage about every message of the others, also
// those of the two outer blocks that stand outside, with Visit::stop to make it current. It may ask mtIterator_place
// meanwhile. Null when memory is short.
MessageTableIterator* mtIterator_openAt(MessageTable* table, QueryConditions* conditions, const MessageVisitor& visitor,
                                        const FramePlace& first, const FramePlace& end) noexcept;
// Frees the iterator with its conditions; null is accepted.
void mtIterator_close(MessageTableIterator* iterator) noexcept;

using MessageTableIteratorPtr = Handle<MessageTableIterator, mtIterator_close>;

// Moves to the next match: *end is false when it is current, true when there is none (yet: a later call goes on). The
// previous message is gone in either case. NULL_POINTER_ERROR; MASTER_INACTIVE_ERROR without an active file; for damage
// HEADER_CORRUPTED_ERROR, CONSISTENCY_ERROR, NO_DATA_ERROR (a cut frame inside a closed block); FILE_READ_ERROR,
// SYSTEM_FILE_ERROR, OUT_OF_MEMORY_ERROR.
ErrorCode mtIterator_next(MessageTableIterator* iterator, bool* end) noexcept;

// The same while a walk forward needs nothing but what is in memory, which makes no call to the system and writes no
// line of the log; *end is true also where more is to be read, and mtIterator_next goes on. Errors of the visitor
// alone.
ErrorCode mtIterator_nextLoaded(MessageTableIterator* iterator, bool* end) noexcept;

// Where the message stands that was decoded last; valid while the iterator's block at hand stays.
struct MessagePlace {
    FramePlace frame;
    std::int32_t indexInBlock = 0;        // of a damaged block that is read from behind: as if it were whole
    const std::uint8_t* bytes = nullptr;  // of the frame, as many as the message says
};
MessagePlace mtIterator_place(const MessageTableIterator* iterator) noexcept;

// The current message. Before the first one, after the end and after an error numbers are 0, texts are absent and the
// MsgType is empty.
const MessageMetadata& mtIterator_getMetadata(const MessageTableIterator* iterator) noexcept;
StringField mtIterator_getWireMessage(const MessageTableIterator* iterator) noexcept;
StringField mtIterator_getNonMetadataFields(const MessageTableIterator* iterator) noexcept;
// All slots of the current message. No caller of ours: Java asks for one field at a time.
const StringField* mtIterator_getStringValues(const MessageTableIterator* iterator) noexcept;
const NumericValue* mtIterator_getNumericValues(const MessageTableIterator* iterator) noexcept;
// The text of slot `index`, or the MsgType (with its NUL) for the index behind the last slot.
// INDEX_OUT_OF_BOUNDS_ERROR.
ErrorCode mtIterator_getStringField(const MessageTableIterator* iterator, std::int32_t index,
                                    StringField* text) noexcept;
// The number of a configured field, or behind the last one of the metadata (query/pseudo_field.h). An absent field is
// NaN, or 0 as a long; a double becomes a long by truncation. INDEX_OUT_OF_BOUNDS_ERROR.
ErrorCode mtIterator_getNumericFieldAsDouble(const MessageTableIterator* iterator, std::int32_t index,
                                             double* value) noexcept;
ErrorCode mtIterator_getNumericFieldAsLong(const MessageTableIterator* iterator, std::int32_t index,
                                           std::int64_t* value) noexcept;

// The visitors of an iterator, which must outlive them. A block is skipped when it cannot match (never when inverted).
// At a message that matches (does not, when inverted) the visit stops, and the message becomes the current one.
// Called here only: mtIterator_open gives the iterator the one that its conditions want.
MessageVisitor query_match(MessageTableIterator* iterator) noexcept;
MessageVisitor query_matchInverted(MessageTableIterator* iterator) noexcept;

}  // namespace tabulo::internal
