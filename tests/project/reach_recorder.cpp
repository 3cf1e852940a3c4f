// Stands in the library that ./check mutants compiles with -fsanitize-coverage=trace-pc, where every block of code
// calls the function below. It marks the block in a file that all processes of a test share, so that what a child did
// counts although it was killed.
//
// The environment names that file, TABULO_REACH_MAP, and the one that the blocks are listed in, TABULO_REACH_LOG: each
// line a name and the blocks' return addresses as offsets in the library, in hexadecimal.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Where the library begins and where its code ends; the linker's names.
extern "C" __attribute__((visibility("hidden"))) const unsigned char __ehdr_start[];
extern "C" __attribute__((visibility("hidden"))) const unsigned char etext[];

namespace {

unsigned char* blocks = nullptr;  // a byte for each byte of the library

std::size_t size() {
    return static_cast<std::size_t>(etext - __ehdr_start);
}

// Before the library's own initialisers, which are blocks too.
__attribute__((constructor(101))) void openMap() {
    const char* path = std::getenv("TABULO_REACH_MAP");
    const int descriptor = path == nullptr ? -1 : ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        return;
    }
    if (::ftruncate(descriptor, static_cast<off_t>(size())) == 0) {
        void* map = ::mmap(nullptr, size(), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        blocks = map == MAP_FAILED ? nullptr : static_cast<unsigned char*>(map);
    }
    ::close(descriptor);
}

}  // namespace

extern "C" void __sanitizer_cov_trace_pc() {
    if (blocks != nullptr) {
        blocks[static_cast<const unsigned char*>(__builtin_return_address(0)) - __ehdr_start] = 1;
    }
}

// Lists the blocks that ran since the last call under a name, and forgets them.
extern "C" void tabulo_listReached(const char* name) {
    const char* path = std::getenv("TABULO_REACH_LOG");
    std::FILE* list = blocks == nullptr || path == nullptr ? nullptr : std::fopen(path, "ae");
    if (list == nullptr) {
        return;
    }
    std::fputs(name, list);
    for (std::size_t offset = 0; offset < size(); ++offset) {
        const auto* next = static_cast<const unsigned char*>(std::memchr(blocks + offset, 1, size() - offset));
        if (next == nullptr) {
            break;
        }
        offset = static_cast<std::size_t>(next - blocks);
        std::fprintf(list, " %zx", offset);
    }
    std::fputc('\n', list);
    std::fclose(list);
    std::memset(blocks, 0, size());
}
