#include "api/stored_header.h"

#include "api/layout.h"
#include "core/byte_stream.h"
#include "messagetable/table_header.h"
#include "sessioninfo/type_record.h"
#include "storage/byte_stream_file.h"
#include "storage/type_name.h"

namespace tabulo::api {

namespace {

using internal::ErrorCode;
using internal::KSVByteStream;

ErrorCode readMessageTable(KSVByteStream* stream, StoredHeader* header) {
    const ErrorCode named = internal::typeName_read(stream, internal::TYPE_NAME);
    if (named != internal::NO_ERROR) {
        return named;
    }
    internal::MessageTableHeader stored;
    const bool hasLayout = internal::byteStream_unread(stream) >= internal::LAYOUT_SIZE;
    const ErrorCode read = internal::mtLayout_read(&stored, stream, true);
    // An impossible layout is told before the names that it makes up run out of data.
    const ErrorCode checked = hasLayout ? internal::mtLayout_check(&stored.layout) : internal::NO_ERROR;
    if (checked != internal::NO_ERROR || read != internal::NO_ERROR) {
        return checked != internal::NO_ERROR ? checked : read;
    }
    header->numbers = stored.layout;
    header->layout = layout_ofHeader(stored);
    return internal::headerTail_parse(stream, &header->tail);
}

// Which kind of table this is tells its type name alone, so each is tried.
ErrorCode readSpecific(KSVByteStream* stream, StoredHeader* header) {
    const std::int32_t start = internal::byteStream_readMark(stream);
    const ErrorCode session = internal::siX_readTypeRecord(&header->tags, stream);
    if (session != internal::TABLE_TYPE_ERROR) {
        header->kind = TableKind::sessionInfo;
        return session;
    }
    internal::byteStream_clearError(stream);
    if (internal::byteStream_resetRead(stream, internal::BYTE_STREAM_FORWARD, start).failed()) {
        return internal::byteStream_error(stream);
    }
    header->kind = TableKind::messages;
    return readMessageTable(stream, header);
}

}  // namespace

void file_end(internal::TableFile* file) noexcept {
    if (file != nullptr && internal::tableFileClose(file) != internal::NO_ERROR) {
        (void)internal::tableFileClose(file);  // the second close frees the record whatever comes of it
    }
}

FileHandle file_open(const Call& call, const std::string& path) {
    internal::TableFile* file = nullptr;
    call.check(internal::tableFileOpen(&file, path.c_str(), internal::OpenMode::read, nullptr));
    return FileHandle(file);
}

StoredHeader storedHeader_read(const Call& call, internal::TableFile* file) {
    StoredHeader header;
    call.check(internal::tableFileRefreshSize(file, &header.fileSize));
    const internal::ByteStreamPtr stream(internal::byteStream_create(internal::MAX_HEADER_SIZE));
    if (stream == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    call.check(internal::byteStream_readFromFileAt(stream.get(), file, 0, internal::MAX_HEADER_SIZE));
    if (internal::byteStream_unread(stream.get()) <= internal::GENERIC_HEADER_SIZE) {
        call.fail(internal::FILE_SIZE_ERROR);
    }
    call.check(internal::tsgh_read(&header.generic, stream.get()));
    call.check(internal::tsgh_verify(&header.generic));
    const ErrorCode code = readSpecific(stream.get(), &header);
    if (code != internal::NO_ERROR) {
        call.fail(code, internal::byteStream_readMark(stream.get()));
    }
    if (internal::byteStream_readMark(stream.get()) != header.generic.headerSize) {
        call.fail(internal::HEADER_CORRUPTED_ERROR, internal::GENERIC_HEADER_SIZE - 4,
                  "the header does not end where it says");
    }
    return header;
}

StoredHeader storedHeader_read(const Call& call, const std::string& path, TableKind kind) {
    const FileHandle file = file_open(call, path);
    StoredHeader header = storedHeader_read(call, file.get());
    if (header.kind != kind) {
        call.fail(internal::TABLE_TYPE_ERROR);
    }
    return header;
}

}  // namespace tabulo::api
