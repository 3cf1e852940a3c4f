// What every store of the comparison does, as a record of functions. A store that cannot do something has no function
// for it. A failure ends the process with a sentence: a benchmark that goes on after one would measure something else.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "benchmarks/fail.h"
#include "benchmarks/workload.h"

namespace tabulo::internal::bench {

// Takes one order of a query; false ends the query.
using VisitOrder = bool (*)(void* context, const Order& order);

enum class QueryKind { everything, sequence, time, clOrdId, symbol };

struct Query {
    QueryKind kind = QueryKind::everything;
    std::int64_t first = 0;  // of sequence numbers or times, inclusive
    std::int64_t last = 0;
    std::string text;  // of a ClOrdID or a Symbol
    bool backward = false;
};

enum class Access { create, write, read };

struct Store {
    const char* name;   // in results and on command lines
    const char* title;  // for readers
    // Opens the store in a directory of its own, which is empty for Access::create.
    void* (*open)(const std::string& directory, Access access);
    // Stores one order; when it returns, everything has been handed to the operating system, nothing was synced.
    void (*append)(void* store, const Order& order);
    // A clean close.
    void (*close)(void* store);
    // Hands the matching orders to `visit`, in the order of writing or backward, every field decoded.
    void (*read)(void* store, const Query& query, VisitOrder visit, void* context);
    bool bySequenceOnly = false;  // other queries would mean to read everything into memory
};

// All stores that were built, the raw limit first and this library second; with peers that were not found, by name.
std::span<const Store> stores();
std::span<const char* const> missingStores();
const Store* store_find(std::string_view name);

// For stores without an index: whether an order answers the query, and whether later ones cannot (orders are written in
// the order of sequence and time).
bool query_matches(const Query& query, const Order& order);
bool query_isBehind(const Query& query, const Order& order);

}  // namespace tabulo::internal::bench
