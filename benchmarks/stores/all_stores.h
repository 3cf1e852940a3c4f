// The stores of the comparison. A peer's function exists only in a build that has found the peer.
#pragma once

#include "benchmarks/store.h"

namespace tabulo::internal::bench {

Store raw_store();
Store tabulo_store();
Store quickfix_store();
Store leveldb_store(bool indexed);
Store lmdb_store(bool indexed);
Store lmdb_mappedStore(bool indexed);
Store rocksdb_store(bool indexed);
Store sqlite_store(bool indexed);

}  // namespace tabulo::internal::bench
