// QuickFIX's FileStore: the whole order as one message, by its sequence number, the only key it has.
//
// It hands messages out up to their first NUL, so an order is stored as text: its numbers and then its texts, each
// ended by a separator. Its count of sent messages, which an engine rewrites for each message, is left alone, which
// favours it. So a reader finds out by asking up to which sequence number there are orders.
#include <algorithm>
#include <charconv>

#include "benchmarks/frame_codec.h"
#include "benchmarks/stores/all_stores.h"
#include "benchmarks/stores/quickfix_files.h"

namespace tabulo::internal::bench {

namespace {

constexpr char SEPARATOR = '\x02';
constexpr int CHUNK = 1000;  // orders asked for at once, as they are handed out in a vector

struct QuickfixStore {
    void* files = nullptr;
    std::array<char, LARGEST_ORDER> text;
};

struct Delivery {
    VisitOrder visit;
    void* context;
    int count;
    bool more;
};

template <typename Number>
char* putNumber(char* at, Number number) {
    at = std::to_chars(at, at + 32, number).ptr;
    *at++ = SEPARATOR;
    return at;
}

std::size_t encode(const Order& order, char* text) {
    const MessageMetadata& metadata = order.metadata;
    char* at = text;
    for (const std::int64_t number :
         {std::int64_t{metadata.uniformId}, std::int64_t{metadata.seqNum}, std::int64_t{metadata.prevSeqNum},
          std::int64_t{metadata.connMsgId}, metadata.timestamp, std::int64_t{metadata.msgType[0]},
          std::int64_t{metadata.isPossDupFlag}, std::int64_t{metadata.isOutOfSequence}, order.numbers[0].longValue}) {
        at = putNumber(at, number);
    }
    at = putNumber(at, order.numbers[1].doubleValue);
    for (std::size_t i = 0; i < ORDER_STRINGS; ++i) {
        const std::string_view field = stringField_withoutNul(order.texts[i]);
        std::memcpy(at, field.data(), field.size());
        at += field.size();
        *at++ = SEPARATOR;
    }
    return static_cast<std::size_t>(at - text);
}

// Texts are ended by a NUL where their separator was.
void decode(char* text, std::size_t length, DecodedOrder* order) {
    char* at = text;
    char* end = text + length;
    const auto get = [&](auto* number) { at = const_cast<char*>(std::from_chars(at, end, *number).ptr) + 1; };
    MessageMetadata& metadata = order->metadata;
    int type = 0;
    std::int64_t quantity = 0;
    double price = 0;
    get(&metadata.uniformId);
    get(&metadata.seqNum);
    get(&metadata.prevSeqNum);
    get(&metadata.connMsgId);
    get(&metadata.timestamp);
    get(&type);
    get(&metadata.isPossDupFlag);
    get(&metadata.isOutOfSequence);
    get(&quantity);
    get(&price);
    metadata.msgType[0] = static_cast<char>(type);
    order->numbers = {numericValue_ofLong(quantity), numericValue_ofDouble(price)};
    for (StringField& field : order->strings) {
        char* separator = std::find(at, end, SEPARATOR);
        *separator = '\0';
        field = {at, static_cast<std::int32_t>(separator + 1 - at)};
        at = separator + 1;
    }
}

bool take(void* context, char* text, std::size_t length) {
    auto* delivery = static_cast<Delivery*>(context);
    DecodedOrder decoded;
    decode(text, length, &decoded);
    delivery->count += 1;
    delivery->more = delivery->visit(delivery->context, order_of(decoded));
    return delivery->more;
}

void* quickfix_open(const std::string& directory, Access) {
    auto* store = new QuickfixStore;
    store->files = quickfixFiles_open(directory.c_str());
    return store;
}

void quickfix_append(void* object, const Order& order) {
    auto* store = static_cast<QuickfixStore*>(object);
    const std::size_t length = encode(order, store->text.data());
    if (!quickfixFiles_set(store->files, order.metadata.seqNum, store->text.data(), length)) {
        fail("QuickFIX: refuses an order");
    }
}

void quickfix_close(void* object) {
    auto* store = static_cast<QuickfixStore*>(object);
    quickfixFiles_close(store->files);
    delete store;
}

void get(QuickfixStore* store, int first, int last, bool backward, Delivery* delivery) {
    if (!quickfixFiles_get(store->files, first, last, backward, take, delivery)) {
        fail("QuickFIX: cannot be read");
    }
}

bool exists(QuickfixStore* store, int seqNum) {
    Delivery delivery{[](void*, const Order&) { return true; }, nullptr, 0, true};
    get(store, seqNum, seqNum, false, &delivery);
    return delivery.count > 0;
}

// The highest sequence number; the numbers have no gap.
int lastSeqNum(QuickfixStore* store) {
    int there = 0;
    int missing = 1;
    while (exists(store, missing)) {
        there = missing;
        missing *= 2;
    }
    while (missing - there > 1) {
        const int middle = there + (missing - there) / 2;
        (exists(store, middle) ? there : missing) = middle;
    }
    return there;
}

void quickfix_read(void* object, const Query& query, VisitOrder visit, void* context) {
    auto* store = static_cast<QuickfixStore*>(object);
    const bool all = query.kind == QueryKind::everything;
    const int first = all ? 1 : static_cast<int>(query.first);
    const int last = all ? lastSeqNum(store) : static_cast<int>(query.last);
    Delivery delivery{visit, context, 0, true};
    for (int done = 0; delivery.more && done < last - first + 1; done += CHUNK) {
        const int from = query.backward ? std::max(first, last - done - CHUNK + 1) : first + done;
        const int to = query.backward ? last - done : std::min(last, first + done + CHUNK - 1);
        get(store, from, to, query.backward, &delivery);
    }
}

}  // namespace

Store quickfix_store() {
    return {"quickfix", "QuickFIX FileStore", quickfix_open, quickfix_append, quickfix_close, quickfix_read, true};
}

}  // namespace tabulo::internal::bench
