// A table's file, or a piece that was cut out of one, opened for reading with a layout that is known already: nothing
// of its header is asked.
#pragma once

#include <cstdint>
#include <string>

#include "api/call.h"
#include "api/file_bytes.h"
#include "api/stored_header.h"
#include "messagetable/block_reader.h"
#include "storage/table_storage.h"
#include "tabulo/table_info.h"

namespace tabulo::api {

struct RawTable {
    const Call& call;
    internal::MessageTableLayout layout;
    std::int64_t headerEnd;  // where blocks begin
    FileHandle file;
    internal::TableStoragePtr storage;  // without files: what block readers ask for sizes
    internal::BlockReaderPtr blocks;    // for a block cursor
    internal::BlockReaderPtr frames;    // for a frame cursor, so that its messages outlive a step of the block cursor
    FileBytes bytes;

    // Throws outOfMemory. The call must outlive the table.
    RawTable(const Call& call, FileHandle opened, const Layout& layout, std::int64_t headerEnd);

    std::int32_t footerSize() const { return blocks->footerSize; }
    std::int32_t smallestFrame() const;
    // The file's size now. Throws systemFile.
    std::int64_t size() const;
};

}  // namespace tabulo::api
