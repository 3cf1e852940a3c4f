// LMDB: one transaction for each order, MDB_NOSYNC, as nobody syncs here.
//
// By default a commit writes the changed pages with system calls. The mapped variants (MDB_WRITEMAP) change the mapped
// file in place, with no system call at all: the bytes are in the system's page cache, and a stray write of the process
// can change any stored byte. They are shown beside the others.
#include <lmdb.h>

#include "benchmarks/frame_codec.h"
#include "benchmarks/stores/all_stores.h"
#include "benchmarks/stores/order_keys.h"

namespace tabulo::internal::bench {

namespace {

constexpr std::size_t MAP_SIZE = std::size_t{16} << 30U;  // the file is sparse, and holds what is used of it

enum Database : std::size_t { ORDERS, BY_TIME, BY_ID, BY_SYMBOL, DATABASES };
constexpr std::array<const char*, DATABASES> DATABASE_NAMES = {"orders", "times", "ids", "symbols"};

struct LmdbStore {
    MDB_env* environment = nullptr;
    std::array<MDB_dbi, DATABASES> databases{};
    std::array<std::uint8_t, LARGEST_ORDER> frame;
    bool indexed = false;
};

void check(int code) {
    if (code != MDB_SUCCESS) {
        fail(std::string("LMDB: ") + mdb_strerror(code));
    }
}

MDB_val value(std::string_view bytes) {
    return {bytes.size(), const_cast<char*>(bytes.data())};
}

std::string_view view(const MDB_val& bytes) {
    return {static_cast<const char*>(bytes.mv_data), bytes.mv_size};
}

template <bool INDEXED, bool MAPPED>
void* lmdb_open(const std::string& directory, Access access) {
    auto* store = new LmdbStore;
    store->indexed = INDEXED;
    check(mdb_env_create(&store->environment));
    check(mdb_env_set_mapsize(store->environment, MAP_SIZE));
    check(mdb_env_set_maxdbs(store->environment, DATABASES));
    const unsigned flags = access == Access::read ? unsigned{MDB_RDONLY} : MDB_NOSYNC | (MAPPED ? MDB_WRITEMAP : 0U);
    check(mdb_env_open(store->environment, directory.c_str(), flags, 0644));
    MDB_txn* transaction = nullptr;
    check(mdb_txn_begin(store->environment, nullptr, access == Access::read ? MDB_RDONLY : 0, &transaction));
    for (std::size_t i = 0; i < (INDEXED ? std::size_t{DATABASES} : std::size_t{1}); ++i) {
        check(mdb_dbi_open(transaction, DATABASE_NAMES[i], access == Access::create ? MDB_CREATE : 0,
                           &store->databases[i]));
    }
    check(mdb_txn_commit(transaction));
    return store;
}

// Keys that only grow are appended to the last page (MDB_APPEND), which is faster and fills pages.
void put(MDB_txn* transaction, MDB_dbi database, const OrderKey& key, MDB_val data, bool growing) {
    MDB_val keyValue = value(key.view());
    check(mdb_put(transaction, database, &keyValue, &data, growing ? MDB_APPEND : 0));
}

void lmdb_append(void* object, const Order& order) {
    auto* store = static_cast<LmdbStore*>(object);
    const MessageMetadata& metadata = order.metadata;
    MDB_txn* transaction = nullptr;
    check(mdb_txn_begin(store->environment, nullptr, 0, &transaction));
    const std::size_t length = frame_encode(order, store->frame.data());
    put(transaction, store->databases[ORDERS], OrderKey() << metadata, {length, store->frame.data()}, true);
    if (store->indexed) {
        const MDB_val none{};
        put(transaction, store->databases[BY_TIME],
            OrderKey() << static_cast<std::uint64_t>(metadata.timestamp) << metadata, none, true);
        put(transaction, store->databases[BY_ID], OrderKey() << stringField_bytes(order.texts[CL_ORD_ID]) << metadata,
            none, false);
        put(transaction, store->databases[BY_SYMBOL], OrderKey() << stringField_bytes(order.texts[SYMBOL]) << metadata,
            none, false);
    }
    check(mdb_txn_commit(transaction));
}

void lmdb_close(void* object) {
    auto* store = static_cast<LmdbStore*>(object);
    mdb_env_close(store->environment);
    delete store;
}

// A reading transaction with a cursor over one database.
struct Reader {
    MDB_txn* transaction = nullptr;
    MDB_cursor* cursor = nullptr;
    MDB_val key{};
    MDB_val data{};

    Reader(LmdbStore* store, MDB_dbi database) {
        check(mdb_txn_begin(store->environment, nullptr, MDB_RDONLY, &transaction));
        check(mdb_cursor_open(transaction, database, &cursor));
    }
    ~Reader() {
        mdb_cursor_close(cursor);
        mdb_txn_abort(transaction);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool step(MDB_cursor_op operation) {
        const int code = mdb_cursor_get(cursor, &key, &data, operation);
        if (code != MDB_NOTFOUND) {
            check(code);
        }
        return code == MDB_SUCCESS;
    }
};

bool deliver(const MDB_val& data, const Query& query, VisitOrder visit, void* context) {
    DecodedOrder decoded;
    frame_decode(static_cast<const std::uint8_t*>(data.mv_data), &decoded);
    const Order order = order_of(decoded);
    if (query.kind == QueryKind::everything || query_matches(query, order)) {
        return visit(context, order);
    }
    return !query_isBehind(query, order);
}

void walk(LmdbStore* store, const Query& query, VisitOrder visit, void* context) {
    Reader reader(store, store->databases[ORDERS]);
    bool there = false;
    if (query.kind == QueryKind::sequence) {
        const OrderKey from = OrderKey() << static_cast<std::uint32_t>(query.first);
        reader.key = value(from.view());
        there = reader.step(MDB_SET_RANGE);
    } else {
        there = reader.step(query.backward ? MDB_LAST : MDB_FIRST);
    }
    while (there && deliver(reader.data, query, visit, context)) {
        there = reader.step(query.backward ? MDB_PREV : MDB_NEXT);
    }
}

void walkIndex(LmdbStore* store, Database index, const OrderKey& from, const OrderKey& last, const Query& query,
               VisitOrder visit, void* context) {
    Reader reader(store, store->databases[index]);
    reader.key = value(from.view());
    for (bool there = reader.step(MDB_SET_RANGE); there && view(reader.key).substr(0, last.length) <= last.view();
         there = reader.step(MDB_NEXT)) {
        const std::string_view entry = view(reader.key);
        MDB_val key = value(entry.substr(entry.size() - OWN_KEY));
        MDB_val data{};
        check(mdb_get(reader.transaction, store->databases[ORDERS], &key, &data));
        if (!deliver(data, query, visit, context)) {
            return;
        }
    }
}

void lmdb_read(void* object, const Query& query, VisitOrder visit, void* context) {
    auto* store = static_cast<LmdbStore*>(object);
    if (store->indexed && query.kind == QueryKind::time) {
        walkIndex(store, BY_TIME, OrderKey() << static_cast<std::uint64_t>(query.first),
                  OrderKey() << static_cast<std::uint64_t>(query.last), query, visit, context);
    } else if (store->indexed && query.kind == QueryKind::clOrdId) {
        const OrderKey id = OrderKey() << query.text << '\0';
        walkIndex(store, BY_ID, id, id, query, visit, context);
    } else if (store->indexed && query.kind == QueryKind::symbol) {
        const OrderKey symbol = OrderKey() << query.text << '\0';
        walkIndex(store, BY_SYMBOL, symbol, symbol, query, visit, context);
    } else {
        walk(store, query, visit, context);
    }
}

}  // namespace

Store lmdb_store(bool indexed) {
    if (indexed) {
        return {"lmdb-indexed", "LMDB, indexed", lmdb_open<true, false>, lmdb_append, lmdb_close, lmdb_read};
    }
    return {"lmdb", "LMDB", lmdb_open<false, false>, lmdb_append, lmdb_close, lmdb_read};
}

Store lmdb_mappedStore(bool indexed) {
    if (indexed) {
        return {"lmdb-mapped-indexed",
                "LMDB, writable map, indexed",
                lmdb_open<true, true>,
                lmdb_append,
                lmdb_close,
                lmdb_read};
    }
    return {"lmdb-mapped", "LMDB, writable map", lmdb_open<false, true>, lmdb_append, lmdb_close, lmdb_read};
}

}  // namespace tabulo::internal::bench
