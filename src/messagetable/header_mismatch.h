// The WARNING that names what a table's configuration and its file disagree about.
#pragma once

#include "messagetable/table_header.h"

namespace tabulo::internal {

enum class FieldKind { string, numeric };

// Continues a WARNING that ends in "mismatch in ": the file's path, then the configured and the stored field names.
void headerMismatch_writeDetail(const char* path, FieldKind kind, const MessageTableHeader& configured,
                                const MessageTableHeader& stored) noexcept;

}  // namespace tabulo::internal
