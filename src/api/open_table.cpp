#include "api/open_table.h"

#include <utility>

#include "api/layout.h"

namespace tabulo::api {

namespace {

constexpr int MOST_TRIES = 10;

}  // namespace

internal::MessageTablePtr openTable(const Call& call, internal::TableConfigPtr config, internal::OpenMode mode) {
    internal::MessageTablePtr table(internal::mt_create(config.release()));
    if (table == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    call.check(internal::mt_open(table.get(), mode));
    return table;
}

internal::TableFile* openTable_file(const internal::MessageTable* table) {
    return internal::tableStorage_master(internal::mt_storage(table));
}

internal::MessageTablePtr openTable_asStored(const Call& call, const std::string& path, StoredHeader* header) {
    for (int i = 0; i < MOST_TRIES; ++i) {
        const StoredHeader expected = storedHeader_read(call, path, TableKind::messages);
        internal::MessageTablePtr table =
            openTable(call, layout_configureAsStored(expected.layout, path), internal::OpenMode::read);
        *header = storedHeader_read(call, openTable_file(table.get()));
        if (header->layout == expected.layout) {
            return table;
        }
    }
    call.fail(internal::CONFIG_MISMATCH_ERROR, std::nullopt, "the file is being replaced all the time");
}

}  // namespace tabulo::api
