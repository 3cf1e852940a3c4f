#include "benchmarks/stores/tabulo_store.h"

#include "benchmarks/stores/all_stores.h"
#include "index/index_builder.h"
#include "query/message_table_iterator.h"
#include "query/query_conditions.h"
#include "tests/support/current_message.h"

namespace tabulo::internal::bench {

namespace {

TablePtr table_create(KSVTboTableConfig* config, const std::string& directory, const MessageTableLayout& layout) {
    if (tableConfig_setPath(config, 0, (directory + "/").c_str()) != NO_ERROR ||
        tableConfig_setParams(config, &layout, nullptr) != NO_ERROR) {
        fail("the table cannot be configured");
    }
    TablePtr table(mt_create(config));
    if (table == nullptr) {
        fail("the table cannot be created");
    }
    return table;
}

void* tabulo_open(const std::string& directory, Access access) {
    TablePtr table = table_ofOrders(directory);
    const OpenMode mode = access == Access::create  ? OpenMode::create
                          : access == Access::write ? OpenMode::write
                                                    : OpenMode::read;
    table_open(table.get(), mode);
    return table.release();
}

void tabulo_append(void* object, const Order& order) {
    if (mt_writeMessage(static_cast<MessageTable*>(object), order) != NO_ERROR) {
        fail("the table refuses a message");
    }
}

void tabulo_close(void* object) {
    auto* table = static_cast<MessageTable*>(object);
    if (mt_close(table) != NO_ERROR) {
        fail("the table cannot be closed");
    }
    mt_destroy(table);
}

// A condition that were refused would show in the messages found, which each benchmark counts.
MessageTableIteratorPtr iterator_open(MessageTable* table, const Query& query) {
    QueryConditions* conditions = conditions_create();
    (void)conditions_setIterateBackward(conditions, query.backward);
    switch (query.kind) {
        case QueryKind::sequence:
            (void)conditions_setSeqNumRange(conditions, static_cast<std::int32_t>(query.first),
                                            static_cast<std::int32_t>(query.last));
            break;
        case QueryKind::time:
            (void)conditions_setStartingTime(conditions, query.first);
            (void)conditions_setEndingTime(conditions, query.last);
            break;
        case QueryKind::clOrdId:
        case QueryKind::symbol:
            (void)conditions_addStringFilter(conditions, query.kind == QueryKind::symbol ? SYMBOL : CL_ORD_ID, false,
                                             false);
            (void)conditions_setStringFilterValueCount(conditions, 1);
            (void)conditions_setStringFilterValue(conditions, query.text.c_str(), 0);
            break;
        default:
            break;
    }
    MessageTableIteratorPtr iterator(mtIterator_open(table, conditions));
    if (iterator == nullptr) {
        fail("no iterator can be opened");
    }
    return iterator;
}

void tabulo_read(void* object, const Query& query, VisitOrder visit, void* context) {
    const MessageTableIteratorPtr iterator = iterator_open(static_cast<MessageTable*>(object), query);
    for (;;) {
        bool end = false;
        if (mtIterator_next(iterator.get(), &end) != NO_ERROR) {
            fail("the table cannot be read");
        }
        if (end || !visit(context, test::currentMessage(iterator.get()))) {
            return;
        }
    }
}

}  // namespace

TablePtr table_ofOrders(const std::string& directory) {
    KSVTboTableConfig* config = tableConfig_create("orders", 1);
    for (const char* name : {"ClOrdID", "Symbol", "Account"}) {
        (void)tableConfig_addStringFieldName(config, name);
    }
    for (const char* name : {"OrderQty", "Price"}) {
        (void)tableConfig_addNumericFieldName(config, name);
    }
    MessageTableLayout layout = config->layout;
    layout.messagesPerBlock = MESSAGES_PER_BLOCK;
    layout.summarisedStringFieldCount = LEADING_BUILT_IN_STRING_FIELDS + 3;
    return table_create(config, directory, layout);
}

TablePtr table_ofReports(const std::string& directory) {
    KSVTboTableConfig* config = tableConfig_create("reports", 1);
    for (const char* name : {"ClOrdID", "OrigClOrdID", "OrderID"}) {
        (void)tableConfig_addStringFieldName(config, name);
    }
    MessageTableLayout layout = config->layout;
    layout.messagesPerBlock = MESSAGES_PER_BLOCK;
    layout.summarisedStringFieldCount = LEADING_BUILT_IN_STRING_FIELDS + 3;
    return table_create(config, directory, layout);
}

TablePtr table_ofSmallMessages(const std::string& directory) {
    return table_create(tableConfig_create("small", 1), directory, MessageTableLayout{});
}

void table_open(MessageTable* table, OpenMode mode) {
    const ErrorCode code = mt_open(table, mode);
    if (code != NO_ERROR) {
        fail(std::string("the table cannot be opened: ") + getErrorMessage(code));
    }
}

void table_index(MessageTable* table) {
    const std::string path = tableStorage_master(mt_storage(table))->path;
    IndexBuilder builder(path, mt_layout(table));
    if (builder.open() != NO_ERROR || builder.update(table, 1, {}) != NO_ERROR || builder.merge() != NO_ERROR) {
        fail("the index of " + path + " cannot be built");
    }
}

Store tabulo_indexedStore() {
    Store store = tabulo_store();
    store.name = "tabulo-indexed";
    store.title = "Tabulo, native, with its index";
    return store;
}

Store tabulo_store() {
    return {"tabulo", "Tabulo, native", tabulo_open, tabulo_append, tabulo_close, tabulo_read};
}

}  // namespace tabulo::internal::bench
