// SQLite: one row for each order, one transaction for each row, every field in a column.
//
// journal_mode WAL and synchronous OFF: a transaction is written to the log and not synced. locking_mode EXCLUSIVE, the
// fastest, as the writer is alone. The rowid is the order's own key (sequence number and uniform id), so that the
// sequence number, the first of the four query keys, needs no index of its own; the indexed variant has three more, for
// time, ClOrdID and Symbol.
#include <sqlite3.h>

#include "benchmarks/frame_codec.h"
#include "benchmarks/stores/all_stores.h"

namespace tabulo::internal::bench {

namespace {

constexpr const char* CREATE_TABLE =
    "CREATE TABLE orders (id INTEGER PRIMARY KEY, uniformId INTEGER, seqNum INTEGER, prevSeqNum INTEGER,"
    " connMsgId INTEGER, time INTEGER, msgType TEXT, possDup INTEGER, outOfSequence INTEGER, orderQty INTEGER,"
    " price REAL, session TEXT, gateway TEXT, clOrdId TEXT, symbol TEXT, account TEXT, wire BLOB, other TEXT)";
constexpr const char* CREATE_INDEXES =
    "CREATE INDEX byTime ON orders (time);"
    "CREATE INDEX byId ON orders (clOrdId);"
    "CREATE INDEX bySymbol ON orders (symbol)";
constexpr const char* INSERT = "INSERT INTO orders VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
constexpr const char* WRITER_SETTINGS =
    "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF";
constexpr const char* READER_SETTINGS = "PRAGMA mmap_size=17179869184";

constexpr int FIRST_STRING = 11;  // column numbers
constexpr int ORDER_QTY = 9;
constexpr int PRICE = 10;
constexpr int MSG_TYPE = 6;

struct SqliteStore {
    sqlite3* database = nullptr;
    sqlite3_stmt* insert = nullptr;
};

void check(const SqliteStore* store, bool good) {
    if (!good) {
        fail(std::string("SQLite: ") + sqlite3_errmsg(store->database));
    }
}

void execute(SqliteStore* store, const char* sql) {
    check(store, sqlite3_exec(store->database, sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

std::int64_t ownKey(std::int64_t seqNum, std::int64_t uniformId) {
    return (seqNum << 32U) + uniformId;
}

template <bool INDEXED>
void* sqlite_open(const std::string& directory, Access access) {
    auto* store = new SqliteStore;
    const int flags = access == Access::read ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    check(store, sqlite3_open_v2((directory + "/orders").c_str(), &store->database, flags | SQLITE_OPEN_NOMUTEX,
                                 nullptr) == SQLITE_OK);
    if (access == Access::read) {
        execute(store, READER_SETTINGS);
        return store;
    }
    execute(store, WRITER_SETTINGS);
    if (access == Access::create) {
        execute(store, CREATE_TABLE);
        if (INDEXED) {
            execute(store, CREATE_INDEXES);
        }
    }
    check(store, sqlite3_prepare_v3(store->database, INSERT, -1, SQLITE_PREPARE_PERSISTENT, &store->insert, nullptr) ==
                     SQLITE_OK);
    return store;
}

void sqlite_append(void* object, const Order& order) {
    auto* store = static_cast<SqliteStore*>(object);
    const MessageMetadata& metadata = order.metadata;
    int column = 1;
    const auto number = [&](std::int64_t value) { sqlite3_bind_int64(store->insert, column++, value); };
    number(ownKey(metadata.seqNum, metadata.uniformId));
    number(metadata.uniformId);
    number(metadata.seqNum);
    number(metadata.prevSeqNum);
    number(metadata.connMsgId);
    number(metadata.timestamp);
    sqlite3_bind_text(store->insert, column++, metadata.msgType.data(), -1, SQLITE_STATIC);
    number(metadata.isPossDupFlag);
    number(metadata.isOutOfSequence);
    number(order.numbers[0].longValue);
    sqlite3_bind_double(store->insert, column++, order.numbers[1].doubleValue);
    for (std::size_t i = 0; i < ORDER_STRINGS; ++i) {
        const StringField& field = order.texts[i];
        // Without the NUL, which SQLite would count as a character.
        const int length = field.length - 1;
        if (i == WIRE) {
            sqlite3_bind_blob(store->insert, column++, field.text, length, SQLITE_STATIC);
        } else {
            sqlite3_bind_text(store->insert, column++, field.text, length, SQLITE_STATIC);
        }
    }
    check(store, sqlite3_step(store->insert) == SQLITE_DONE);
    sqlite3_reset(store->insert);
}

void sqlite_close(void* object) {
    auto* store = static_cast<SqliteStore*>(object);
    sqlite3_finalize(store->insert);
    check(store, sqlite3_close(store->database) == SQLITE_OK);
    delete store;
}

void decode(sqlite3_stmt* row, DecodedOrder* order) {
    MessageMetadata& metadata = order->metadata;
    metadata.uniformId = sqlite3_column_int(row, 1);
    metadata.seqNum = sqlite3_column_int(row, 2);
    metadata.prevSeqNum = sqlite3_column_int(row, 3);
    metadata.connMsgId = sqlite3_column_int(row, 4);
    metadata.timestamp = sqlite3_column_int64(row, 5);
    metadata.msgType.fill('\0');
    const void* type = sqlite3_column_text(row, MSG_TYPE);
    std::memcpy(metadata.msgType.data(), type, static_cast<std::size_t>(sqlite3_column_bytes(row, MSG_TYPE)));
    metadata.isPossDupFlag = static_cast<std::uint8_t>(sqlite3_column_int(row, 7));
    metadata.isOutOfSequence = static_cast<std::uint8_t>(sqlite3_column_int(row, 8));
    order->numbers[0] = numericValue_ofLong(sqlite3_column_int64(row, ORDER_QTY));
    order->numbers[1] = numericValue_ofDouble(sqlite3_column_double(row, PRICE));
    for (std::size_t i = 0; i < ORDER_STRINGS; ++i) {
        const int column = FIRST_STRING + static_cast<int>(i);
        // sqlite3_column_text ends the text with a NUL; the wire message's blob has none, and gets none.
        const void* text = i == WIRE ? sqlite3_column_blob(row, column) : sqlite3_column_text(row, column);
        order->strings[i] = {static_cast<const char*>(text), sqlite3_column_bytes(row, column) + 1};
    }
}

void sqlite_read(void* object, const Query& query, VisitOrder visit, void* context) {
    auto* store = static_cast<SqliteStore*>(object);
    std::string sql = "SELECT * FROM orders";
    switch (query.kind) {
        case QueryKind::sequence:
            sql += " WHERE id BETWEEN ?1 AND ?2 ORDER BY id";
            break;
        case QueryKind::time:
            sql += " WHERE time BETWEEN ?1 AND ?2 ORDER BY time, id";
            break;
        case QueryKind::clOrdId:
            sql += " WHERE clOrdId = ?1";
            break;
        case QueryKind::symbol:
            sql += " WHERE symbol = ?1 ORDER BY id";
            break;
        default:
            sql += query.backward ? " ORDER BY id DESC" : " ORDER BY id";
            break;
    }
    sqlite3_stmt* select = nullptr;
    check(store, sqlite3_prepare_v2(store->database, sql.c_str(), -1, &select, nullptr) == SQLITE_OK);
    if (query.kind == QueryKind::sequence) {
        sqlite3_bind_int64(select, 1, ownKey(query.first, 0));
        sqlite3_bind_int64(select, 2, ownKey(query.last + 1, 0) - 1);
    } else if (query.kind == QueryKind::time) {
        sqlite3_bind_int64(select, 1, query.first);
        sqlite3_bind_int64(select, 2, query.last);
    } else if (query.kind == QueryKind::clOrdId || query.kind == QueryKind::symbol) {
        sqlite3_bind_text(select, 1, query.text.c_str(), -1, SQLITE_STATIC);
    }
    DecodedOrder decoded;
    int code = sqlite3_step(select);
    for (; code == SQLITE_ROW; code = sqlite3_step(select)) {
        decode(select, &decoded);
        if (!visit(context, order_of(decoded))) {
            code = SQLITE_DONE;
            break;
        }
    }
    check(store, code == SQLITE_DONE);
    sqlite3_finalize(select);
}

}  // namespace

Store sqlite_store(bool indexed) {
    if (indexed) {
        return {"sqlite-indexed", "SQLite, indexed", sqlite_open<true>, sqlite_append, sqlite_close, sqlite_read};
    }
    return {"sqlite", "SQLite", sqlite_open<false>, sqlite_append, sqlite_close, sqlite_read};
}

}  // namespace tabulo::internal::bench
