#include <leveldb/db.h>
#include <leveldb/filter_policy.h>
#include <leveldb/write_batch.h>

#include "benchmarks/stores/lsm_store.h"

namespace tabulo::internal::bench {

namespace {

struct LevelDbApi {
    static constexpr const char* NAME = "leveldb";
    static constexpr const char* TITLE = "LevelDB";
    static constexpr const char* INDEXED_NAME = "leveldb-indexed";
    static constexpr const char* INDEXED_TITLE = "LevelDB, indexed";

    using Slice = leveldb::Slice;
    using Iterator = leveldb::Iterator;
    using Options = leveldb::Options;
    using ReadOptions = leveldb::ReadOptions;
    using WriteOptions = leveldb::WriteOptions;
    using WriteBatch = leveldb::WriteBatch;
    using Handle = std::unique_ptr<leveldb::DB>;

    // No compression, and a write buffer as large as RocksDB's: fewer, larger merges in the background.
    static void settings(Options* options) {
        static const leveldb::FilterPolicy* const filter = leveldb::NewBloomFilterPolicy(10);
        options->compression = leveldb::kNoCompression;
        options->write_buffer_size = 64U << 20U;
        options->filter_policy = filter;
    }
    static bool open(const Options& options, const std::string& path, Handle* handle) {
        leveldb::DB* opened = nullptr;
        const bool good = leveldb::DB::Open(options, path, &opened).ok();
        handle->reset(opened);
        return good;
    }
};

}  // namespace

Store leveldb_store(bool indexed) {
    return LsmStore<LevelDbApi>::store(indexed);
}

}  // namespace tabulo::internal::bench
