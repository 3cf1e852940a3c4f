#include "tests/bounds/sparse_platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace tabulo::internal::test {

namespace {

constexpr std::size_t SMALLEST_HOLE = 1 << 16;

bool isZero(const char* bytes, std::size_t length) {
    return length == 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, length - 1) == 0);
}

std::int64_t fileSize(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? status.st_size : -1;
}

// Behind the file's end, the zero bytes of a large write only make the file longer.
SystemError writeAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                    std::size_t* transferred) {
    const FilePlatform& system = filePlatform_system();
    if (length < SMALLEST_HOLE || offset < fileSize(descriptor)) {
        return system.writeAt(descriptor, buffer, length, offset, transferred);
    }
    const auto* bytes = static_cast<const char*>(buffer);
    for (std::size_t done = 0; done < length;) {
        const std::size_t piece = std::min(SMALLEST_HOLE, length - done);
        std::size_t count = piece;
        SystemError error;
        if (!isZero(bytes + done, piece)) {
            error = system.writeAt(descriptor, bytes + done, piece, offset + static_cast<std::int64_t>(done), &count);
        }
        if (error.failed()) {
            *transferred = done;
            return done == 0 ? error : SystemError{};
        }
        done += count;
    }
    *transferred = length;
    const std::int64_t end = offset + static_cast<std::int64_t>(length);
    return fileSize(descriptor) < end ? system.truncate(descriptor, end) : SystemError{};
}

// A hole at the beginning of what is asked for is answered without the system.
SystemError readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset, std::size_t* transferred) {
    const FilePlatform& system = filePlatform_system();
    if (length < SMALLEST_HOLE) {
        return system.readAt(descriptor, buffer, length, offset, transferred);
    }
    const std::int64_t size = fileSize(descriptor);
    std::int64_t data = ::lseek(descriptor, offset, SEEK_DATA);
    if (data < 0 && errno == ENXIO) {
        data = size;  // a hole up to the end
    }
    const std::int64_t wanted = std::min(size - offset, static_cast<std::int64_t>(length));
    const std::int64_t hole = std::min(data - offset, wanted);
    if (hole > 0) {
        *transferred = static_cast<std::size_t>(hole);
        std::memset(buffer, 0, *transferred);
        return 0;
    }
    std::int64_t nextHole = ::lseek(descriptor, offset, SEEK_HOLE);
    nextHole = nextHole < 0 ? size : nextHole;
    const std::int64_t stored =
        std::min(std::max<std::int64_t>(nextHole - offset, 1), static_cast<std::int64_t>(length));
    return system.readAt(descriptor, buffer, static_cast<std::size_t>(stored), offset, transferred);
}

}  // namespace

SparsePlatform::SparsePlatform() : record_(filePlatform_system()), previous_(nullptr) {
    record_.writeAt = writeAt;
    record_.readAt = readAt;
    previous_ = filePlatform_install(&record_);
}

SparsePlatform::~SparsePlatform() {
    filePlatform_install(previous_);
}

bool SparsePlatform::holesAreFree(const std::string& directory) {
    const std::string path = directory + "/hole";
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return false;
    }
    struct stat status {};
    const bool free = ::ftruncate(descriptor, 1 << 24) == 0 && ::fstat(descriptor, &status) == 0 &&
                      status.st_blocks < 64 && ::lseek(descriptor, 0, SEEK_DATA) < 0;
    ::close(descriptor);
    ::unlink(path.c_str());
    return free;
}

}  // namespace tabulo::internal::test
