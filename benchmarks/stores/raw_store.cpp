// The raw limit: each order is encoded and handed over with one write(2), and nothing else is done. Reading takes the
// file in pieces and decodes it in place.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "benchmarks/frame_codec.h"
#include "benchmarks/stores/all_stores.h"

namespace tabulo::internal::bench {

namespace {

constexpr std::size_t PIECE = 256 * 1024;

struct RawStore {
    int descriptor = -1;
    std::array<std::uint8_t, LARGEST_ORDER> frame;
    std::vector<std::uint8_t> piece = std::vector<std::uint8_t>(PIECE);
};

void* raw_open(const std::string& directory, Access access) {
    auto* store = new RawStore;
    const int flags = access == Access::read ? O_RDONLY : O_RDWR | O_CREAT;
    store->descriptor = ::open((directory + "/orders").c_str(), flags, 0644);
    if (store->descriptor < 0 || ::lseek(store->descriptor, 0, SEEK_END) < 0) {
        fail("the raw file cannot be opened");
    }
    return store;
}

void raw_append(void* object, const Order& order) {
    auto* store = static_cast<RawStore*>(object);
    const std::size_t length = frame_encode(order, store->frame.data());
    if (::write(store->descriptor, store->frame.data(), length) != static_cast<ssize_t>(length)) {
        fail("write(2) failed");
    }
}

void raw_close(void* object) {
    auto* store = static_cast<RawStore*>(object);
    ::close(store->descriptor);
    delete store;
}

// Reads `length` bytes of the file at an offset, fewer at its end.
std::size_t readAt(RawStore* store, std::uint8_t* target, std::size_t length, off_t offset) {
    const ssize_t count = ::pread(store->descriptor, target, length, offset);
    if (count < 0) {
        fail("pread(2) failed");
    }
    return static_cast<std::size_t>(count);
}

// False when the visitor, or the query, wants no more.
bool deliver(const Query& query, const DecodedOrder& decoded, VisitOrder visit, void* context) {
    const Order order = order_of(decoded);
    if (query.kind == QueryKind::everything || query_matches(query, order)) {
        return visit(context, order);
    }
    return !query_isBehind(query, order);
}

void readForward(RawStore* store, const Query& query, VisitOrder visit, void* context) {
    DecodedOrder decoded;
    std::uint8_t* piece = store->piece.data();
    std::size_t kept = 0;
    off_t offset = 0;
    for (;;) {
        const std::size_t count = readAt(store, piece + kept, PIECE - kept, offset);
        offset += static_cast<off_t>(count);
        const std::uint8_t* at = piece;
        const std::uint8_t* end = piece + kept + count;
        while (end - at >= 4 && static_cast<std::size_t>(end - at) >= frame_lengthAt(at)) {
            frame_decode(at, &decoded);
            at += frame_lengthAt(at);
            if (!deliver(query, decoded, visit, context)) {
                return;
            }
        }
        if (count == 0) {
            return;
        }
        kept = static_cast<std::size_t>(end - at);
        std::memmove(piece, at, kept);
    }
}

void readBackward(RawStore* store, const Query& query, VisitOrder visit, void* context) {
    DecodedOrder decoded;
    struct stat status {};
    ::fstat(store->descriptor, &status);
    std::uint8_t* piece = store->piece.data();
    off_t end = status.st_size;
    while (end > 0) {
        const auto wanted = std::min<off_t>(end, static_cast<off_t>(PIECE));
        const std::size_t count = readAt(store, piece, static_cast<std::size_t>(wanted), end - wanted);
        const std::uint8_t* at = piece + count;
        while (at - piece >= 4 && static_cast<std::size_t>(at - piece) >= frame_lengthAt(at - 4)) {
            at -= frame_lengthAt(at - 4);
            frame_decode(at, &decoded);
            if (!deliver(query, decoded, visit, context)) {
                return;
            }
        }
        end -= piece + count - at;
    }
}

void raw_read(void* object, const Query& query, VisitOrder visit, void* context) {
    auto* store = static_cast<RawStore*>(object);
    (query.backward ? readBackward : readForward)(store, query, visit, context);
}

}  // namespace

Store raw_store() {
    return {"raw", "raw limit: write(2), read(2)", raw_open, raw_append, raw_close, raw_read};
}

}  // namespace tabulo::internal::bench
