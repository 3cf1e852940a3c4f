#include "tests/damage/saved_frames.h"

#include <algorithm>
#include <charconv>

namespace tabulo::internal::test {

bool isSavedBeside(const MemoryPlatform& platform, const std::string& path, const Bytes& bytes, std::size_t start) {
    const std::string prefix = path + ".cut-";
    for (const std::string& saved : platform.paths()) {
        std::size_t offset = 0;
        const char* const last = saved.data() + saved.size();
        if (!saved.starts_with(prefix) ||
            std::from_chars(saved.data() + prefix.size(), last, offset).ec != std::errc() || offset > start) {
            continue;
        }
        const Bytes& copy = platform.bytes(saved);
        if (start - offset + bytes.size() <= copy.size() &&
            std::equal(bytes.begin(), bytes.end(), copy.begin() + static_cast<std::ptrdiff_t>(start - offset))) {
            return true;
        }
    }
    return false;
}

}  // namespace tabulo::internal::test
