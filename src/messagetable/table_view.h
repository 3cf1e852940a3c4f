// What a table that was opened read-only has seen of its file: the open block, and the static indexes behind its last
// message, also those of messages behind the writer's last tail save.
//
// The file is read again only when its size or its stored lastBlockEnd has changed; what was appended is added to what
// is known. A stored tail that does not fit the file is read once more, and then replaced by walking the blocks.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/block_cursor.h"
#include "messagetable/header_tail.h"

namespace tabulo::internal {

struct TableView {
    BlockReaderPtr reader;  // made with the first refresh; its summary is that of the open block
    BlockCursor cursor;     // at the open block
    bool loaded = false;
    std::int64_t size = 0;           // up to the end of the last message
    std::uint64_t lastBlockEnd = 0;  // as stored
};

// Brings the view to what `file` holds now, and the records with it: where the open block begins, the static indexes,
// and what else the stored tail says when it is plausible. CONSISTENCY_ERROR when something that is no message and no
// rest of a write stands in the open block (the records then end before it); HEADER_CORRUPTED_ERROR when the blocks had
// to be walked and one of them is damaged; FILE_READ_ERROR, FILE_SEEK_ERROR, SYSTEM_FILE_ERROR, OUT_OF_MEMORY_ERROR.
ErrorCode tableView_refresh(TableView* view, TableStorage* storage, const MessageTableLayout& layout, TableFile* file,
                            TailRecords* records) noexcept;

}  // namespace tabulo::internal
