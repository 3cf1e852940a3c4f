#include <array>
#include <vector>

#include "benchmarks/stores/all_stores.h"

namespace tabulo::internal::bench {

namespace {

const std::vector<Store>& all() {
    static const std::vector<Store> list = [] {
        std::vector<Store> made = {raw_store(), tabulo_store()};
#ifdef BENCHMARKS_QUICKFIX
        made.push_back(quickfix_store());
#endif
#ifdef BENCHMARKS_LEVELDB
        made.push_back(leveldb_store(false));
        made.push_back(leveldb_store(true));
#endif
#ifdef BENCHMARKS_LMDB
        made.push_back(lmdb_store(false));
        made.push_back(lmdb_store(true));
        made.push_back(lmdb_mappedStore(false));
        made.push_back(lmdb_mappedStore(true));
#endif
#ifdef BENCHMARKS_ROCKSDB
        made.push_back(rocksdb_store(false));
        made.push_back(rocksdb_store(true));
#endif
#ifdef BENCHMARKS_SQLITE
        made.push_back(sqlite_store(false));
        made.push_back(sqlite_store(true));
#endif
        return made;
    }();
    return list;
}

// Names of what was not there when this was built.
const std::vector<const char*> missing = {
#ifndef BENCHMARKS_QUICKFIX
    "QuickFIX",
#endif
#ifndef BENCHMARKS_LEVELDB
    "LevelDB",
#endif
#ifndef BENCHMARKS_LMDB
    "LMDB",
#endif
#ifndef BENCHMARKS_ROCKSDB
    "RocksDB",
#endif
#ifndef BENCHMARKS_SQLITE
    "SQLite",
#endif
};

}  // namespace

std::span<const Store> stores() {
    return all();
}

std::span<const char* const> missingStores() {
    return missing;
}

const Store* store_find(std::string_view name) {
    for (const Store& store : all()) {
        if (name == store.name) {
            return &store;
        }
    }
    return nullptr;
}

bool query_matches(const Query& query, const Order& order) {
    switch (query.kind) {
        case QueryKind::sequence:
            return order.metadata.seqNum >= query.first && order.metadata.seqNum <= query.last;
        case QueryKind::time:
            return order.metadata.timestamp >= query.first && order.metadata.timestamp <= query.last;
        case QueryKind::clOrdId:
            return stringField_withoutNul(order.texts[CL_ORD_ID]) == query.text;
        case QueryKind::symbol:
            return stringField_withoutNul(order.texts[SYMBOL]) == query.text;
        default:
            return true;
    }
}

bool query_isBehind(const Query& query, const Order& order) {
    return (query.kind == QueryKind::sequence && order.metadata.seqNum > query.last) ||
           (query.kind == QueryKind::time && order.metadata.timestamp > query.last);
}

}  // namespace tabulo::internal::bench
