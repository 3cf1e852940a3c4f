#include <rocksdb/db.h>
#include <rocksdb/filter_policy.h>
#include <rocksdb/table.h>
#include <rocksdb/write_batch.h>

#include "benchmarks/stores/lsm_store.h"

namespace tabulo::internal::bench {

namespace {

struct RocksDbApi {
    static constexpr const char* NAME = "rocksdb";
    static constexpr const char* TITLE = "RocksDB";
    static constexpr const char* INDEXED_NAME = "rocksdb-indexed";
    static constexpr const char* INDEXED_TITLE = "RocksDB, indexed";

    using Slice = rocksdb::Slice;
    using Iterator = rocksdb::Iterator;
    using Options = rocksdb::Options;
    using ReadOptions = rocksdb::ReadOptions;
    using WriteOptions = rocksdb::WriteOptions;
    using WriteBatch = rocksdb::WriteBatch;
    using Handle = std::unique_ptr<rocksdb::DB>;

    // No compression; one writer, so nothing is gained by letting several fill the memory table. manual_wal_flush stays
    // off: each call writes the log.
    static void settings(Options* options) {
        options->compression = rocksdb::kNoCompression;
        options->allow_concurrent_memtable_write = false;
        options->enable_write_thread_adaptive_yield = false;
        rocksdb::BlockBasedTableOptions table;
        table.filter_policy.reset(rocksdb::NewBloomFilterPolicy(10));
        options->table_factory.reset(rocksdb::NewBlockBasedTableFactory(table));
    }
    static bool open(const Options& options, const std::string& path, Handle* handle) {
        rocksdb::DB* opened = nullptr;
        const bool good = rocksdb::DB::Open(options, path, &opened).ok();
        handle->reset(opened);
        return good;
    }
};

}  // namespace

Store rocksdb_store(bool indexed) {
    return LsmStore<RocksDbApi>::store(indexed);
}

}  // namespace tabulo::internal::bench
