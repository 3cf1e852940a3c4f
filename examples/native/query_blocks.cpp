// Writes a message table and asks it a few questions, to show how many of its closed blocks each question reads.
//
//   query_blocks [directory]
//
// Without a directory the table is made in a temporary one, and removed.
//
// A closed block ends with a footer that summarises its messages. A query asks each footer first, and skips the block
// when none of its messages can match. The example counts that by putting an operation of its own in front of the
// iterator's.
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "core/handle.h"
#include "core/log.h"
#include "messagetable/message_table.h"
#include "query/message_table_iterator.h"
#include "query/query_conditions.h"

namespace {

using namespace tabulo::internal;

constexpr std::int32_t MESSAGES = 50'500;  // 50 closed blocks of 1000, and an open one
constexpr std::int32_t SYMBOL = 2;         // string slot of the first configured field, behind two built-in ones
constexpr std::int32_t PRICE = 0;          // numeric index of the first configured field
constexpr std::int64_t START_OF_DAY = 1'700'000'000'000;

using TablePtr = Handle<MessageTable, mt_destroy>;

// Ends the program when a setting is refused.
void require(ErrorCode code) {
    if (code != NO_ERROR) {
        throw std::runtime_error(getErrorMessage(code));
    }
}

TablePtr createTable(const std::string& root) {
    KSVTboTableConfig* config = tableConfig_create("orders", 1);
    require(tableConfig_setPath(config, 0, root.c_str()));
    require(tableConfig_addStringFieldName(config, "Symbol"));
    require(tableConfig_addNumericFieldName(config, "Price"));
    // The two leading fields are summarised in every footer; Symbol is to be the third.
    MessageTableLayout layout = config->layout;
    layout.summarisedStringFieldCount = SYMBOL + 1;
    require(tableConfig_setParams(config, &layout, nullptr));
    TablePtr table(mt_create(config));
    return mt_open(table.get(), OpenMode::create) == NO_ERROR ? std::move(table) : nullptr;
}

StringField field(const std::string& text) {
    return {text.c_str(), static_cast<std::int32_t>(text.size()) + 1};  // with its NUL
}

// An order a second. The symbol changes every 10,000 messages, the price climbs, every tenth message is a heartbeat.
bool store(MessageTable* table, std::int32_t n) {
    const std::string symbol = "SYM" + std::to_string(n / 10'000);
    const std::string wire =
        "8=FIX.4.4\x01"
        "34=" +
        std::to_string(n) + "\x01";
    MessageMetadata metadata;
    metadata.uniformId = n;
    metadata.seqNum = n;
    metadata.connMsgId = n;
    metadata.timestamp = START_OF_DAY + std::int64_t{1000} * n;
    metadata.msgType[0] = n % 10 == 0 ? '0' : 'D';
    const StringField strings[] = {{}, {}, field(symbol), field(wire), {}};
    const NumericValue price = numericValue_ofDouble(100 + 0.001 * n);
    return mt_writeMessage(table, &metadata, strings, 5, &price, 1) == NO_ERROR;
}

// Closed blocks of the query at hand.
struct Blocks {
    MatchOperation operation = nullptr;  // the iterator's own
    int opened = 0;
    int skipped = 0;
};
Blocks blocks;

ErrorCode countBlocks(std::int32_t* answer, void* iterator, const BlockSummary* summary,
                      const MessageMetadata* metadata, const StringField* strings, std::int32_t stringCount,
                      const NumericValue* numbers, std::int32_t numberCount) {
    const ErrorCode code =
        blocks.operation(answer, iterator, summary, metadata, strings, stringCount, numbers, numberCount);
    if (summary != nullptr) {
        (*answer == Visit::skipBlock ? blocks.skipped : blocks.opened) += 1;
    }
    return code;
}

bool ask(MessageTable* table, const char* question, const std::function<void(QueryConditions*)>& set) {
    QueryConditionsPtr conditions(conditions_create());
    set(conditions.get());
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions.release()));
    if (iterator == nullptr) {
        return false;
    }
    blocks = {iterator->match};
    iterator->match = countBlocks;
    int found = 0;
    bool end = false;
    ErrorCode code = mtIterator_next(iterator.get(), &end);
    for (; code == NO_ERROR && !end; code = mtIterator_next(iterator.get(), &end)) {
        found += 1;
    }
    std::printf("%-44s %7d %8d %8d\n", question, found, blocks.opened, blocks.skipped);
    return code == NO_ERROR;
}

bool askAll(MessageTable* table) {
    std::printf("%-44s %7s %8s %8s\n", "question", "found", "opened", "skipped");
    bool all = ask(table, "everything", [](QueryConditions*) {});
    all = all && ask(table, "sequence numbers 20,100 to 20,199", [](QueryConditions* conditions) {
              require(conditions_setSeqNumRange(conditions, 20'100, 20'199));
          });
    all = all && ask(table, "SYM3 in one hour", [](QueryConditions* conditions) {
              require(conditions_addStringFilter(conditions, SYMBOL, false, false));
              require(conditions_setStringFilterValueCount(conditions, 1));
              require(conditions_setStringFilterValue(conditions, "SYM3", 0));
              require(conditions_setStartingTime(conditions, START_OF_DAY + 36'000'000));
              require(conditions_setEndingTime(conditions, START_OF_DAY + 39'600'000));
          });
    all = all && ask(table, "prices between 120 and 121, or 150", [](QueryConditions* conditions) {
              const double low = 120;
              const double high = 121;
              const double exactly = 150;
              require(conditions_addDoubleFilter(conditions, PRICE, &low, &high, 1, &exactly, 1, false));
          });
    all = all && ask(table, "a symbol that was never traded", [](QueryConditions* conditions) {
              require(conditions_addStringFilter(conditions, SYMBOL, false, false));
              require(conditions_setStringFilterValueCount(conditions, 1));
              require(conditions_setStringFilterValue(conditions, "SYM77", 0));
          });
    // Footers do not tell MsgTypes: every block is read.
    return all && ask(table, "everything but heartbeats", [](QueryConditions* conditions) {
               require(conditions_setExcludedMsgTypeCount(conditions, 1));
               require(conditions_setExcludedMsgType(conditions, 0, "0"));
           });
}

}  // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    log_setFacility(nullptr);  // no notes between the answers
    const bool given = argc > 1;
    const fs::path directory = given ? fs::absolute(argv[1]) : fs::temp_directory_path() / "tabulo-query-blocks";
    fs::create_directories(directory);
    fs::current_path(directory);  // the library's log file goes there too
    TablePtr table = createTable(directory.string() + "/");
    bool good = table != nullptr;
    for (std::int32_t n = 1; good && n <= MESSAGES; ++n) {
        good = store(table.get(), n);
    }
    good = good && askAll(table.get());
    if (!good) {
        std::fprintf(stderr, "query_blocks: the table in %s could not be written or read\n", directory.c_str());
    }
    table.reset();
    if (!given) {
        fs::remove_all(directory);
    }
    return good ? 0 : 1;
}
