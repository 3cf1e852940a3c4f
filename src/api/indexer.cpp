#include <algorithm>
#include <utility>

#include "api/call.h"
#include "api/layout.h"
#include "api/open_table.h"
#include "api/table_index.h"
#include "api/work_watch.h"
#include "index/index_builder.h"
#include "index/side_index.h"
#include "storage/file_changes.h"
#include "tabulo/index.h"

namespace tabulo {

namespace api {

struct IndexerState {
    std::filesystem::path path;
    internal::MessageTablePtr table;
    std::unique_ptr<internal::IndexBuilder> builder;
    internal::FileChanges changes;
    bool isWatching = false;
};

namespace {

IndexInfo infoOf(const internal::IndexSlot& slot, std::uint64_t bytes, const internal::MessageTableLayout& layout) {
    return {slot.coveredBlocks, std::int64_t{slot.coveredBlocks} * layout.messagesPerBlock, slot.coveredEnd,
            static_cast<std::int64_t>(slot.runs.size()), static_cast<std::int64_t>(bytes)};
}

IndexInfo update(IndexerState& state, std::uint32_t fewest, const Work& work) {
    const Call call(state.path);
    tableIndex_update(call, state.builder.get(), state.table.get(), fewest, work);
    return infoOf(state.builder->slot(), state.builder->bytes(), internal::mt_layout(state.table.get()));
}

}  // namespace

std::unique_ptr<internal::IndexBuilder> tableIndex_open(const Call& call, const std::filesystem::path& path,
                                                        const internal::MessageTable* table) {
    auto builder = std::make_unique<internal::IndexBuilder>(path.string(), internal::mt_layout(table));
    const internal::ErrorCode code = builder->open();
    if (code == internal::SIGNATURE_ERROR) {
        call.fail(code, std::nullopt,
                  "the file " + indexPath(path).string() + ", or that with .new behind it, is no index: move it away");
    }
    if (code == internal::FILE_OPEN_ERROR) {
        const char* why =
            builder->isLocked() ? "another program keeps the index " : "the system does not open the index ";
        call.fail(code, std::nullopt, why + indexPath(path).string());
    }
    call.check(code);
    return builder;
}

void tableIndex_update(const Call& call, internal::IndexBuilder* builder, internal::MessageTable* table,
                       std::uint32_t fewest, const Work& work) {
    WorkWatch watch(work);
    std::int64_t size = 0;
    if (internal::TableFile* file = openTable_file(table); file != nullptr) {
        call.check(internal::tableFileGetSize(file, &size));
    }
    watch.begin(size);
    const internal::IndexProgress progress{&watch, [](void* owner, std::int64_t offset, std::int64_t messages) {
                                               return static_cast<WorkWatch*>(owner)->goOn(offset, messages);
                                           }};
    call.check(builder->update(table, fewest, progress));
    if ((fewest == EVERY_BLOCK && !watch.isStopped()) || builder->isMergeDue()) {
        call.check(builder->merge());
        if (builder->slot().coveredBlocks == 0) {  // a damaged page was found, and the index begun anew
            call.check(builder->update(table, fewest, progress));
        }
    }
    watch.rethrow();
}

}  // namespace api

std::filesystem::path indexPath(const std::filesystem::path& table) {
    std::filesystem::path path = table;
    path += internal::INDEX_SUFFIX;
    return path;
}

std::optional<IndexInfo> inspectIndex(const std::filesystem::path& table) {
    const api::Call call(table);
    api::StoredHeader header;
    const internal::MessageTablePtr open = api::openTable_asStored(call, api::checkedPath(table), &header);
    const auto index = internal::sideIndex_of(open.get(), api::openTable_file(open.get()));
    if (index == nullptr) {
        return std::nullopt;
    }
    std::error_code ignored;  // the file may be gone by now
    const std::uintmax_t bytes = std::filesystem::file_size(indexPath(table), ignored);
    return api::infoOf(index->slot(), ignored ? 0 : bytes, internal::mt_layout(open.get()));
}

Indexer::Indexer(const std::filesystem::path& table) : state_(std::make_unique<api::IndexerState>()) {
    const api::Call call(table);
    api::StoredHeader header;
    state_->path = table;
    state_->table = api::openTable_asStored(call, api::checkedPath(table), &header);
    state_->builder = api::tableIndex_open(call, table, state_->table.get());
}

Indexer::Indexer(Indexer&&) noexcept = default;
Indexer& Indexer::operator=(Indexer&&) noexcept = default;
Indexer::~Indexer() = default;

IndexInfo Indexer::complete(const Work& work) {
    return api::update(api::use(state_, "the indexer"), api::EVERY_BLOCK, work);
}

IndexInfo Indexer::keepUp(const Work& work) {
    return api::update(api::use(state_, "the indexer"), api::FOLLOWED_BLOCKS, work);
}

bool Indexer::wait(std::chrono::milliseconds most, const std::stop_token& stop) {
    api::IndexerState& state = api::use(state_, "the indexer");
    const std::stop_callback wake(stop, [&state] { internal::fileChanges_wake(&state.changes); });
    if (!state.isWatching) {
        internal::fileChanges_open(&state.changes, "Indexer::wait");
        (void)internal::fileChanges_watch(&state.changes, api::openTable_file(state.table.get()));  // one file alone
        state.isWatching = true;
        return true;  // what came before it was watched
    }
    using std::chrono::nanoseconds;
    const auto end = internal::fileChanges_wait(&state.changes, std::chrono::duration_cast<nanoseconds>(most).count());
    (void)internal::fileChanges_take(&state.changes, nullptr, [](void*, int) {});  // there is one file to look at
    return end == internal::WaitEnd::changed;
}

IndexInfo Indexer::info() const {
    const api::IndexerState& state = api::use(state_, "the indexer");
    return api::infoOf(state.builder->slot(), state.builder->bytes(), internal::mt_layout(state.table.get()));
}

}  // namespace tabulo
