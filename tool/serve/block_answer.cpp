// /api/blocks: what is recorded about the blocks of a table.
#include <limits>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tool/serve/answers.h"
#include "tool/serve/limits.h"
#include "tool/table_cells.h"

namespace tabulo::tool::serve {

namespace {

void appendBlock(const BlockRecord& block, const TableSight& table, Json* json) {
    json->beginList().number(block.ordinal).number(block.offset).number(block.length).flag(block.closed);
    json->number(std::int64_t{block.messageCount});
    json->time(block.times.first, table.unit).time(block.times.last, table.unit);
    json->number(std::int64_t{block.uniformIds.first}).number(std::int64_t{block.uniformIds.last}).beginList();
    for (const std::int32_t bits : block.filterBitsSet) {
        json->number(std::int64_t{bits});
    }
    json->endList().endList();
}

}  // namespace

std::string answerBlocks(Question& question) {
    AskedTable table = question.table();
    const std::vector<BlockSpan> spans = table.sight->spans->all(question.work());
    const std::int64_t limit = question.number("limit", 2000, 1, MOST_BLOCKS);
    const std::int64_t from = question.number("from", 0, 0, std::numeric_limits<std::int32_t>::max());
    Json json;
    json.begin().key("filterNames").beginList();
    for (const std::string& name : filteredTexts(table.reader.layout())) {
        json.text(name);
    }
    json.endList().key("filterBits").number(std::int64_t{BlockRecord::filterBits});
    json.key("total").number(static_cast<std::int64_t>(spans.size())).key("blocks").beginList();
    std::string damage;
    if (from < static_cast<std::int64_t>(spans.size())) {
        try {
            BlockRecord begin;
            begin.ordinal = from;
            begin.offset = spans[static_cast<std::size_t>(from)].offset;
            Blocks blocks = table.reader.blocksFrom(begin, question.work());
            for (std::int64_t count = 0; count < limit; ++count) {
                const BlockRecord* block = blocks.next();
                if (block == nullptr) {
                    break;
                }
                appendBlock(*block, *table.sight, &json);
            }
        } catch (const Error& error) {
            damage = error.what();
        }
    }
    if (damage.empty()) {
        damage = table.sight->damage;
    }
    json.endList().key("damage");
    damage.empty() ? json.null() : json.text(damage);
    json.end();
    return json.take();
}

}  // namespace tabulo::tool::serve
