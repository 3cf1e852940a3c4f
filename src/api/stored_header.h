// A table's header as its file has it, read without knowing the table.
#pragma once

#include <cstdint>
#include <string>

#include "api/call.h"
#include "core/handle.h"
#include "messagetable/header_tail.h"
#include "storage/generic_header.h"
#include "storage/table_config.h"
#include "storage/table_file.h"
#include "tabulo/table_info.h"

namespace tabulo::api {

// Closes also where the system cannot.
void file_end(internal::TableFile* file) noexcept;
using FileHandle = internal::Handle<internal::TableFile, file_end>;

// Opens a file for reading. Throws the codes of tableFileOpen.
FileHandle file_open(const Call& call, const std::string& path);

struct StoredHeader {
    internal::TableGenericHeader generic;
    TableKind kind = TableKind::messages;
    std::int64_t fileSize = 0;  // when it was read
    // Of a message table.
    Layout layout;
    internal::MessageTableLayout numbers;
    internal::TailRecords tail;
    // Of a session info table.
    internal::SessionInfoTags tags;
};

// Reads the header of either kind. Throws fileSize for a file that ends with its generic header or before,
// streamNotEnoughData for one that ends inside its own, signature, byteOrder, version, headerCorrupted, tableType.
StoredHeader storedHeader_read(const Call& call, internal::TableFile* file);
// The same of a table that must be of one kind: tableType otherwise.
StoredHeader storedHeader_read(const Call& call, const std::string& path, TableKind kind);

}  // namespace tabulo::api
