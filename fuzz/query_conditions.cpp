// Fuzz target: query conditions filled through every setter, asked about messages and about the block that holds them.
//
//   1     layout: a number of layouts()
//   1     messages: 1 to 4
//   var   the messages (messageFrom)
//   rest  query conditions (conditions_input.h)
//
// A block that holds a match must not be ruled out, neither by the summary that was kept nor by its footer read back.
#include "fuzz/conditions_input.h"
#include "fuzz/harness.h"
#include "fuzz/tables.h"
#include "messagetable/block_summary.h"
#include "query/match.h"

namespace tabulo::internal::fuzz {

namespace {

bool matches(const QueryConditions& conditions, const Message& message) {
    return query_messageMatches(conditions, MessageFields(message).view());
}

void add(BlockSummary* summary, const Message& message, const MessageTableLayout& layout) {
    blockSummary_add(summary, layout, MessageFields(message).view(), 100);
}

// The summary as a reader has it: from a footer, which stays in the stream.
void readBack(BlockSummary* summary, KSVByteStream* stream, const BlockSummary& kept,
              const MessageTableLayout& layout) {
    constexpr std::uint64_t blockLength = 100000;
    requireSuccess(blockSummary_writeFooter(&kept, layout, stream), "writing a footer");
    byteStream_put(stream, blockLength);
    requireSuccess(blockSummary_init(summary, layout), "a summary");
    requireSuccess(blockSummary_readFooter(summary, layout, stream, blockLength), "reading a footer back");
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tabulo::internal::fuzz;
    Input input({data, size});
    const tabulo::internal::MessageTableLayout& layout = layouts()[input.byte() % layouts().size()];
    const std::int32_t count = 1 + input.below(4);
    std::vector<Message> messages;
    tabulo::internal::BlockSummary kept;
    requireSuccess(tabulo::internal::blockSummary_init(&kept, layout), "a summary");
    for (std::int32_t i = 0; i < count; ++i) {
        messages.push_back(messageFrom(&input, layout));
        add(&kept, messages.back(), layout);
    }
    const tabulo::internal::QueryConditionsPtr conditions = conditionsFrom(&input, layout);
    bool anyMatches = false;
    for (const Message& message : messages) {
        anyMatches = matches(*conditions, message) || anyMatches;
    }
    tabulo::internal::BlockSummary stored;
    const tabulo::internal::ByteStreamPtr stream(tabulo::internal::byteStream_create(0));
    readBack(&stored, stream.get(), kept, layout);
    const bool mayMatch = tabulo::internal::query_blockMayMatch(*conditions, kept, layout);
    require(mayMatch == tabulo::internal::query_blockMayMatch(*conditions, stored, layout),
            "a footer answers otherwise than the summary it was written from");
    if (anyMatches && !conditions_leaveOutClosedBlocks(*conditions)) {
        require(mayMatch, "a block with a match is ruled out");
    }
    return 0;
}
