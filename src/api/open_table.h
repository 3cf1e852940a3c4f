// Opening a message table for reading with the layout that its file has.
#pragma once

#include <string>

#include "api/call.h"
#include "api/stored_header.h"
#include "messagetable/message_table.h"

namespace tabulo::api {

// Creates the table of a configuration and opens it. Throws the codes of mt_open.
internal::MessageTablePtr openTable(const Call& call, internal::TableConfigPtr config, internal::OpenMode mode);

// Opens the table at a path for reading. *header becomes that of the file that is open, also when another one is put in
// its place meanwhile. Throws the codes of storedHeader_read and of mt_open.
internal::MessageTablePtr openTable_asStored(const Call& call, const std::string& path, StoredHeader* header);

// The file of an open table, which lives as long as that is open; null when a failed write has closed it.
internal::TableFile* openTable_file(const internal::MessageTable* table);

}  // namespace tabulo::api
