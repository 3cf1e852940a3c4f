#include "storage/salvage.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <vector>

namespace tabulo::internal {

namespace {

constexpr std::int64_t COPY_PIECE = std::int64_t{1024} * 1024;

// Opens the first name that is not taken.
ErrorCode openCopy(const std::string& base, FileStream* copy, std::string* path) {
    *path = base;
    for (std::int32_t number = 1;; ++number) {
        const SystemError error = fileStream_create(copy, path->c_str());
        if (!error.failed()) {
            return NO_ERROR;
        }
        if (!filePlatform_isExisting(error) || number == std::numeric_limits<std::int32_t>::max()) {
            return FILE_OPEN_ERROR;
        }
        systemError_clear();  // a name that is taken is no failure
        *path = base + "-" + std::to_string(number);
    }
}

ErrorCode copyBytes(TableFile* file, std::int64_t offset, std::int64_t length, std::vector<std::uint8_t>& piece,
                    FileStream* copy) {
    std::int64_t copied = 0;
    while (copied < length) {
        const std::int64_t wanted = std::min(length - copied, COPY_PIECE);
        std::int64_t count = 0;
        const ErrorCode code = tableFileReadAt(file, offset + copied, piece.data(), wanted, &count);
        if (code != NO_ERROR || count != wanted) {
            return code != NO_ERROR ? code : FILE_READ_ERROR;
        }
        if (fileStream_write(copy, piece.data(), static_cast<std::size_t>(wanted)).failed()) {
            return FILE_WRITE_ERROR;
        }
        copied += wanted;
    }
    return fileStream_flush(copy).failed() || fileStream_sync(copy).failed() ? FILE_WRITE_ERROR : NO_ERROR;
}

}  // namespace

ErrorCode salvage_save(TableFile* file, std::int64_t offset, std::int64_t length, std::string* savedPath) noexcept {
    try {
        // Allocated before the copy is opened: nothing below may throw while its descriptor is open.
        std::vector<std::uint8_t> piece(static_cast<std::size_t>(std::min(length, COPY_PIECE)));
        const auto copy = std::make_unique<FileStream>();
        ErrorCode code = openCopy(file->path + ".cut-" + std::to_string(offset), copy.get(), savedPath);
        if (code != NO_ERROR) {
            return code;
        }
        code = copyBytes(file, offset, length, piece, copy.get());
        if (fileStream_close(copy.get()).failed() && code == NO_ERROR) {
            code = FILE_WRITE_ERROR;
        }
        if (code != NO_ERROR) {
            // A rest that cannot be removed is told by the code all the same.
            (void)filePlatform_repeat("remove", savedPath->c_str(),
                                      [&] { return filePlatform().remove(savedPath->c_str()); });
        } else {
            // The copy is on the disk; its name follows when the system likes.
            (void)filePlatform_repeat("commit", savedPath->c_str(),
                                      [&] { return filePlatform().syncDirectory(savedPath->c_str()); });
        }
        return code;
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
}

}  // namespace tabulo::internal
