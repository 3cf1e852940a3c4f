#include "index/run_merge.h"

#include <algorithm>

#include "index/block_map.h"
#include "index/key_map.h"

namespace tabulo::internal {

namespace {

// One run's entries of the part at hand.
struct Source {
    KeyMapCursor cursor;
    std::uint32_t firstMessage;  // of the run, in the merged one
    std::uint32_t number;        // of the run

    // Of one key the earlier run's messages come first.
    std::uint64_t place() const { return std::uint64_t{cursor.key()} << 32 | number; }
};

bool isLater(const Source* left, const Source* right) {
    return left->place() > right->place();
}

// The part of all runs; a part without leaves, and *sound false, when a page is not sound.
IndexPart mergeKeys(std::vector<Source>* sources, RunWriter* merged, bool* sound) {
    KeyMapWriter keys(merged);
    std::vector<Source*> heap;
    for (Source& source : *sources) {
        if (source.cursor.next()) {
            heap.push_back(&source);
        }
    }
    std::make_heap(heap.begin(), heap.end(), isLater);
    while (!heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), isLater);
        Source& source = *heap.back();
        // Up to what another run has next: ids that ascend through the table come from one run for a long time.
        const std::uint64_t limit = heap.size() > 1 ? heap.front()->place() : UINT64_MAX;
        bool goesOn = true;
        while (goesOn && source.place() < limit) {
            keys.add(source.cursor.key(), source.firstMessage + source.cursor.message());
            goesOn = source.cursor.next();
        }
        if (goesOn) {
            std::push_heap(heap.begin(), heap.end(), isLater);
        } else {
            heap.pop_back();
        }
    }
    *sound =
        std::all_of(sources->begin(), sources->end(), [](const Source& source) { return source.cursor.isSound(); });
    return keys.finish();
}

IndexPart mergeBlocks(IndexPages* pages, std::span<const IndexRun> runs, const MessageTableLayout& layout,
                      RunWriter* merged, bool* sound) {
    BlockMapWriter blocks(merged, layout);
    for (const IndexRun& run : runs) {
        BlockMap map(pages, run, layout);
        for (std::uint32_t i = 0; i < run.blocks && *sound; ++i) {
            IndexedBlock block;
            *sound = map.read(i, &block);
            blocks.add(block);
        }
    }
    return blocks.finish();
}

}  // namespace

std::vector<IndexPart> runMerge_write(IndexPages* pages, std::span<const IndexRun> runs,
                                      const MessageTableLayout& layout, RunWriter* merged) {
    bool sound = true;
    std::vector<IndexPart> parts{mergeBlocks(pages, runs, layout, merged, &sound)};
    for (std::uint32_t part = UNIFORM_ID_PART; part < indexRun_partCount(layout) && sound; ++part) {
        std::vector<Source> sources;
        sources.reserve(runs.size());
        for (const IndexRun& run : runs) {
            const std::uint32_t blocks = run.firstBlock - runs.front().firstBlock;
            sources.push_back({KeyMapCursor(pages, run, part),
                               blocks * static_cast<std::uint32_t>(layout.messagesPerBlock),
                               static_cast<std::uint32_t>(sources.size())});
        }
        parts.push_back(mergeKeys(&sources, merged, &sound));
    }
    return sound ? parts : std::vector<IndexPart>{};
}

}  // namespace tabulo::internal
