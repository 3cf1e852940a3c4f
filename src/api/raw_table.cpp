#include "api/raw_table.h"

#include <utility>

#include "api/layout.h"
#include "messagetable/frame.h"

namespace tabulo::api {

namespace {

internal::TableStoragePtr makeStorage(const Call& call, const Layout& layout, const std::string& path,
                                      std::int64_t headerEnd) {
    internal::TableConfigPtr config = layout_configureAsStored(layout, path);
    internal::TableStoragePtr storage(internal::tableStorage_create({}, nullptr, config.get()));
    if (storage == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    (void)config.release();  // the storage owns it now
    storage->headerSize = static_cast<std::int32_t>(headerEnd);
    return storage;
}

internal::BlockReaderPtr makeReader(const Call& call, internal::TableStorage* storage,
                                    const internal::MessageTableLayout& layout) {
    internal::BlockReaderPtr reader(internal::blockReader_create(storage, layout));
    if (reader == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    return reader;
}

}  // namespace

RawTable::RawTable(const Call& owner, FileHandle opened, const Layout& given, std::int64_t blocksBegin)
    : call(owner),
      layout(layout_numbers(given)),
      headerEnd(blocksBegin),
      file(std::move(opened)),
      storage(makeStorage(owner, given, file->path, blocksBegin)),
      blocks(makeReader(owner, storage.get(), layout)),
      frames(makeReader(owner, storage.get(), layout)),
      bytes(owner, file.get()) {
}

std::int32_t RawTable::smallestFrame() const {
    return internal::mfr_minimumFrameSize(layout.stringFieldCount, layout.numericFieldCount);
}

std::int64_t RawTable::size() const {
    std::int64_t size = 0;
    call.check(internal::tableFileGetSize(file.get(), &size));
    return size;
}

}  // namespace tabulo::api
