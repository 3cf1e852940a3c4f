// Fuzz target: a table with a side index of any content.
//
//   1     layout: a number of layouts()
//   1     bits: 1 checksums are mended, and what tells the table is made right, so that what stands behind them is
//         believed; 2 a builder goes on with the index, and everything is asked again
//   1     pages of the file, from the index's own on
//   1     n
//   n     query conditions (conditions_input.h)
//   rest  what is written over the index as its builder left it: page, offset in it (2 bytes), length, bytes
//
// With checksums as the input has them every answer is that of a table without an index. With mended ones the answers
// may be wrong, but none is endless, and nothing is read or asked for that is not there.
#include <algorithm>
#include <array>
#include <map>

#include "fuzz/conditions_input.h"
#include "fuzz/harness.h"
#include "fuzz/tables.h"
#include "index/index_builder.h"
#include "index/index_run.h"
#include "index/side_index.h"
#include "index/table_identity.h"
#include "index/uniform_lookup.h"
#include "messagetable/block_writer.h"
#include "query/message_read.h"
#include "tests/support/memory_platform.h"
#include "tests/support/message_takers.h"

namespace tabulo::internal::fuzz {

namespace {

using test::Bytes;

constexpr const char* INDEX_PATH = "m/t.idx";
constexpr std::int32_t MESSAGES = 75;  // enough for an index to list some of them
constexpr std::int32_t IN_FIRST_RUN = 40;
constexpr std::size_t MOST_PAGES_MENDED = 64;
constexpr std::size_t MOST_DELIVERED = MESSAGES;  // each message once

// A table and its index of two runs, which are made once.
struct Images {
    Bytes table;
    Bytes index;
};

void writeMessages(MessageTable* table, const MessageTableLayout& layout, std::int32_t first, std::int32_t last) {
    for (std::int32_t n = first; n <= last; ++n) {
        requireSuccess(writeMessage(table, simpleMessage(n, layout)), "a message");
    }
}

Images makeImages(const MessageTableLayout& layout) {
    const test::MemoryPlatform platform;
    const MessageTablePtr table = createTable(layout);
    requireSuccess(mt_open(table.get(), OpenMode::create), "creating a table");
    {
        IndexBuilder builder(TABLE_PATH, layout);
        requireSuccess(builder.open(), "beginning an index");
        writeMessages(table.get(), layout, 1, IN_FIRST_RUN);
        requireSuccess(builder.update(table.get(), 1, {}), "a run");
        writeMessages(table.get(), layout, IN_FIRST_RUN + 1, MESSAGES);
        requireSuccess(builder.update(table.get(), 1, {}), "another run");
        require(builder.slot().runs.size() == 2, "an index has not the runs that it was given");
    }
    requireSuccess(mt_close(table.get()), "closing");
    return {platform.bytes(TABLE_PATH), platform.bytes(INDEX_PATH)};
}

const Images& imagesOf(std::size_t layout) {
    static std::map<std::size_t, Images> made;
    const auto found = made.find(layout);
    return found != made.end() ? found->second : made.emplace(layout, makeImages(layouts()[layout])).first->second;
}

void overwrite(Input* input, Bytes* index) {
    while (!input->empty()) {
        const std::size_t page = input->byte();
        const std::size_t offset = page * INDEX_PAGE_SIZE + input->number<std::uint16_t>() % INDEX_PAGE_SIZE;
        const std::string bytes = input->text(INDEX_PAGE_SIZE);
        for (std::size_t i = 0; i < bytes.size() && offset + i < index->size(); ++i) {
            (*index)[offset + i] = static_cast<std::uint8_t>(bytes[i]);
        }
    }
}

IndexPage pageOf(const Bytes& index, std::size_t number) {
    IndexPage page;
    std::copy_n(index.begin() + static_cast<std::ptrdiff_t>(number * INDEX_PAGE_SIZE), INDEX_PAGE_SIZE,
                page.bytes.begin());
    return page;
}

void putPage(Bytes* index, std::size_t number, const IndexPage& page) {
    std::copy(page.bytes.begin(), page.bytes.end(),
              index->begin() + static_cast<std::ptrdiff_t>(number * INDEX_PAGE_SIZE));
}

// Makes a slot, and the pages of its runs, sound, and the slot one of the table.
void mendSlot(Bytes* index, std::size_t number, MessageTable* table) {
    constexpr std::uint64_t SLOT_SEED = 0x51D1'0DE5;
    constexpr std::size_t IDENTITY_OFFSET = 32;
    constexpr std::size_t LAST_FOOTER_OFFSET = 40;
    TableStorage* storage = mt_storage(table);
    TableFile* file = tableStorage_master(mt_storage(table));
    IndexPage page = pageOf(*index, number);
    indexPage_seal(&page, SLOT_SEED);
    const std::optional<IndexSlot> slot = indexSlot_choose({page, IndexPage{}});
    if (!slot.has_value()) {
        return;
    }
    const std::int32_t footerSize = blockWriter_footerSize(storage, mt_layout(table));
    page.put(IDENTITY_OFFSET, tableIdentity_read(file, storage->headerSize).value_or(0));
    page.put(LAST_FOOTER_OFFSET, footerChecksum_read(file, slot->coveredEnd, footerSize).value_or(0));
    indexPage_seal(&page, SLOT_SEED);
    putPage(index, number, page);
    std::size_t mended = 0;
    for (const IndexRun& run : slot->runs) {
        for (std::uint32_t i = 0; i < run.pages && mended < MOST_PAGES_MENDED; ++i, ++mended) {
            const std::uint64_t place = std::uint64_t{run.firstPage} + i;
            if (place < INDEX_SLOTS || (place + 1) * INDEX_PAGE_SIZE > index->size()) {
                break;
            }
            IndexPage content = pageOf(*index, place);
            indexPage_seal(&content, indexRun_pageSeed(*slot, run, i));
            putPage(index, place, content);
        }
    }
}

struct Answers {
    std::vector<Messages> read;
    std::vector<std::int64_t> places;
    std::vector<ErrorCode> codes;

    bool operator==(const Answers& other) const {
        return places == other.places && codes == other.codes &&
               std::equal(read.begin(), read.end(), other.read.begin(), other.read.end(),
                          [](const Messages& one, const Messages& another) {
                              return one.code == another.code && one.list == another.list;
                          });
    }
};

void readIds(MessageTable* table, Answers* answers) {
    constexpr std::array<std::int32_t, 3> ids = {3, 41, 1610612736};
    Messages all;
    const auto take = [&](const MessageView& message) {
        require(all.list.size() < MOST_DELIVERED, "readMessages delivers more messages than there are");
        all.list.push_back(ownedMessage(message));
        return Visit::goOn;
    };
    const MessageListener listener = test::listenerOf(&take);
    all.code = mt_readMessages(table, ids.data(), static_cast<std::int32_t>(ids.size()), &listener, false);
    answers->read.push_back(std::move(all));
}

// All that an index is asked for.
Answers answersOf(MessageTable* table, const MessageTableLayout& layout, std::span<const std::uint8_t> conditions) {
    Answers answers;
    for (const bool backward : {false, true}) {
        Input input(conditions);
        QueryConditionsPtr asked = conditionsFrom(&input, layout);
        asked->iterateBackward = backward;
        answers.read.push_back(readByIterator(table, std::move(asked), MOST_DELIVERED));
        asked.reset(conditions_create());
        asked->iterateBackward = backward;
        requireSuccess(conditions_setSeqNumRange(asked.get(), 2, MESSAGES), "a range that nearly every block meets");
        answers.read.push_back(readByIterator(table, std::move(asked), MOST_DELIVERED));
    }
    readIds(table, &answers);
    for (const std::int32_t id : {-5, 1, 17, 40, 41, 75, 76}) {
        UniformPlace place;
        answers.codes.push_back(mt_findUniformId(table, id, &place));
        answers.places.insert(answers.places.end(), {place.offset, place.ordinal, place.skip, place.frame.frame});
    }
    return answers;
}

// A builder goes on with what is there, or begins anew.
void build(MessageTable* table, const MessageTableLayout& layout) {
    IndexBuilder builder(TABLE_PATH, layout);
    if (builder.open() == NO_ERROR) {
        (void)builder.update(table, 1, {});  // any code is an answer
        (void)builder.merge();
    }
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tabulo::internal;
    using namespace tabulo::internal::fuzz;
    Input input({data, size});
    const std::size_t number = input.byte() % layouts().size();
    const MessageTableLayout& layout = layouts()[number];
    const Images& images = imagesOf(number);
    const std::uint8_t bits = input.byte();
    const bool mends = (bits & 1) != 0;
    Bytes index = images.index;
    const std::size_t pages = index.size() / INDEX_PAGE_SIZE + input.byte() % 4;
    index.resize(pages * INDEX_PAGE_SIZE);
    const std::span<const std::uint8_t> conditions = input.take(input.byte());
    overwrite(&input, &index);

    tabulo::internal::test::MemoryPlatform platform;
    platform.put(TABLE_PATH, images.table);
    const MessageTablePtr table = createTable(layout);
    requireSuccess(mt_open(table.get(), OpenMode::read), "opening the table");
    const Answers without = answersOf(table.get(), layout, conditions);
    if (mends) {
        mendSlot(&index, 0, table.get());
        mendSlot(&index, 1, table.get());
    }
    platform.put(INDEX_PATH, index);
    const Answers with = answersOf(table.get(), layout, conditions);
    require(mends || with == without, "an answer is not the one without an index");
    require(platform.bytes(INDEX_PATH) == index, "a query changed the index");
    if ((bits & 2) != 0) {
        build(table.get(), layout);
        const Answers behind = answersOf(table.get(), layout, conditions);
        require(mends || behind == without, "an answer is not the one without an index, which was built on");
    }
    require(platform.bytes(TABLE_PATH) == images.table, "the table was changed");
    return 0;
}
