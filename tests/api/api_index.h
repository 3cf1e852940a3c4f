// A table of the public API with a side index beside it.
#pragma once

#include <fstream>
#include <string>

#include "tabulo/index.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"

namespace tabulo::test {

class ApiIndex : public TableTest {
  protected:
    // Appends simple messages up to this number.
    static void appendTo(StoredTable* table, std::int32_t last) {
        while (static_cast<std::int32_t>(table->count()) < last) {
            table->append(simpleMessage(static_cast<std::int32_t>(table->count()) + 1));
        }
    }
    // Every message is found by its own text, and a text that none has is not.
    static std::string lookUpFault(Reader& reader, const StoredTable& table) {
        for (std::size_t i = 0; i < table.count(); ++i) {
            Query query;
            query.text("ClOrdID", TextCondition::anyOf({"order-" + std::to_string(i + 1)}));
            Messages messages = reader.messages(query);
            const std::string fault = walkFault(messages, table, {i});
            if (!fault.empty()) {
                return "message " + std::to_string(i) + ": " + fault;
            }
        }
        Query query;
        query.text("ClOrdID", TextCondition::anyOf({"order-0"}));
        return idsOf(reader.messages(query)).empty() ? "" : "a message has a text that none has";
    }
    std::int64_t covered() const { return inspectIndex(path()).value_or(IndexInfo{}).blocks; }
    void putForeignIndex() const {
        std::filesystem::remove(indexPath(path()));
        std::ofstream(indexPath(path())) << "this is no index";
    }
};

}  // namespace tabulo::test
