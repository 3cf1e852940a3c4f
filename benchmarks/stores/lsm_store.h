// LevelDB and RocksDB, whose interfaces are the same as far as this goes: one log-structured store by a description of
// its types and settings (Api).
//
// Keys begin with a character that tells what they are; orders come last, so that a backward scan begins at the end.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "benchmarks/frame_codec.h"
#include "benchmarks/stores/all_stores.h"
#include "benchmarks/stores/order_keys.h"

namespace tabulo::internal::bench {

template <typename Api>
struct LsmStore {
    using Slice = typename Api::Slice;
    using IteratorPtr = std::unique_ptr<typename Api::Iterator>;

    static constexpr char BY_ID = 'c';
    static constexpr char BY_SYMBOL = 's';
    static constexpr char BY_TIME = 't';
    static constexpr char ORDER = 'x';

    typename Api::Options options;
    typename Api::Handle handle;
    typename Api::WriteBatch batch;
    std::array<std::uint8_t, LARGEST_ORDER> frame;
    bool indexed = false;

    static Slice slice(const OrderKey& key) { return {key.bytes, key.length}; }

    static void check(bool good, const char* what) {
        if (!good) {
            fail(std::string(Api::NAME) + ": " + what);
        }
    }

    template <bool INDEXED>
    static void* open(const std::string& directory, Access access) {
        auto* store = new LsmStore;
        store->indexed = INDEXED;
        Api::settings(&store->options);
        store->options.create_if_missing = access == Access::create;
        check(Api::open(store->options, directory + "/db", &store->handle), "cannot be opened");
        return store;
    }

    // WriteOptions as they are by default: the log is written to the system in each call, and not synced.
    static void append(void* object, const Order& order) {
        auto* store = static_cast<LsmStore*>(object);
        const std::size_t length = frame_encode(order, store->frame.data());
        const Slice value(reinterpret_cast<const char*>(store->frame.data()), length);
        const MessageMetadata& metadata = order.metadata;
        const OrderKey key = OrderKey() << ORDER << metadata;
        bool good = false;
        if (store->indexed) {
            store->batch.Clear();
            store->batch.Put(slice(key), value);
            const auto index = [&](const OrderKey& entry) { store->batch.Put(slice(entry), Slice()); };
            index(OrderKey() << BY_TIME << static_cast<std::uint64_t>(metadata.timestamp) << metadata);
            index(OrderKey() << BY_ID << stringField_bytes(order.texts[CL_ORD_ID]) << metadata);
            index(OrderKey() << BY_SYMBOL << stringField_bytes(order.texts[SYMBOL]) << metadata);
            good = store->handle->Write(typename Api::WriteOptions(), &store->batch).ok();
        } else {
            good = store->handle->Put(typename Api::WriteOptions(), slice(key), value).ok();
        }
        check(good, "refuses an order");
    }

    static void close(void* object) { delete static_cast<LsmStore*>(object); }

    static bool deliver(const Slice& value, const Query& query, VisitOrder visit, void* context) {
        DecodedOrder decoded;
        frame_decode(reinterpret_cast<const std::uint8_t*>(value.data()), &decoded);
        const Order order = order_of(decoded);
        if (query.kind == QueryKind::everything || query_matches(query, order)) {
            return visit(context, order);
        }
        return !query_isBehind(query, order);
    }

    void walk(const Query& query, VisitOrder visit, void* context) {
        const IteratorPtr iterator(handle->NewIterator(typename Api::ReadOptions()));
        if (query.backward) {
            iterator->SeekToLast();
        } else {
            OrderKey from = OrderKey() << ORDER;
            if (query.kind == QueryKind::sequence) {
                from << static_cast<std::uint32_t>(query.first);
            }
            iterator->Seek(slice(from));
        }
        while (iterator->Valid() && iterator->key()[0] == ORDER && deliver(iterator->value(), query, visit, context)) {
            query.backward ? iterator->Prev() : iterator->Next();
        }
        check(iterator->status().ok(), "cannot be read");
    }

    // Through the index of times or ids: the entries from `from` up to those that begin with something above `last`.
    void walkIndex(const OrderKey& from, const OrderKey& last, const Query& query, VisitOrder visit, void* context) {
        const IteratorPtr iterator(handle->NewIterator(typename Api::ReadOptions()));
        std::string value;
        OrderKey key = OrderKey() << ORDER << std::string_view("\0\0\0\0\0\0\0\0", OWN_KEY);
        for (iterator->Seek(slice(from)); iterator->Valid(); iterator->Next()) {
            const Slice entry = iterator->key();
            if (std::string_view(entry.data(), entry.size()).substr(0, last.length) > last.view()) {
                break;
            }
            std::memcpy(key.bytes + 1, entry.data() + entry.size() - OWN_KEY, OWN_KEY);
            check(handle->Get(typename Api::ReadOptions(), slice(key), &value).ok(), "has an entry without an order");
            if (!deliver(value, query, visit, context)) {
                break;
            }
        }
    }

    static void read(void* object, const Query& query, VisitOrder visit, void* context) {
        auto* store = static_cast<LsmStore*>(object);
        if (store->indexed && query.kind == QueryKind::time) {
            store->walkIndex(OrderKey() << BY_TIME << static_cast<std::uint64_t>(query.first),
                             OrderKey() << BY_TIME << static_cast<std::uint64_t>(query.last), query, visit, context);
        } else if (store->indexed && query.kind == QueryKind::clOrdId) {
            const OrderKey id = OrderKey() << BY_ID << query.text << '\0';
            store->walkIndex(id, id, query, visit, context);
        } else if (store->indexed && query.kind == QueryKind::symbol) {
            const OrderKey symbol = OrderKey() << BY_SYMBOL << query.text << '\0';
            store->walkIndex(symbol, symbol, query, visit, context);
        } else {
            store->walk(query, visit, context);
        }
    }

    static Store store(bool indexed) {
        if (indexed) {
            return {Api::INDEXED_NAME, Api::INDEXED_TITLE, open<true>, append, close, read};
        }
        return {Api::NAME, Api::TITLE, open<false>, append, close, read};
    }
};

}  // namespace tabulo::internal::bench
