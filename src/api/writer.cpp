#include "tabulo/writer.h"

#include <limits>
#include <new>
#include <utility>

#include "api/call.h"
#include "api/layout.h"
#include "api/message_state.h"
#include "api/open_table.h"
#include "api/stored_header.h"
#include "api/table_index.h"
#include "index/index_builder.h"
#include "messagetable/message_table.h"
#include "storage/table_file.h"

namespace tabulo {

namespace api {

namespace {

void keepIndex(WriterState& state, std::uint32_t fewest) noexcept;

}  // namespace

struct WriterState {
    std::filesystem::path path;
    std::string name;
    Layout layout;
    internal::MessageTableLayout numbers;
    std::vector<std::string> warnings;
    MessageEncoder encoder;
    internal::MessageTablePtr table;
    std::unique_ptr<internal::IndexBuilder> index;  // null: none is kept
    std::int64_t indexedBlock = 0;                  // the open block's place when the index was kept last

    ~WriterState() {
        if (table != nullptr) {
            const Call call(path);
            keepIndex(*this, EVERY_BLOCK);
            (void)internal::mt_close(table.get());  // a destructor has nobody to tell
        }
    }
};

namespace {

using State = WriterState;

std::unique_ptr<State> openWriter(const Call& call, const std::filesystem::path& path, const std::string& checked,
                                  const Layout& layout, internal::FilePresence presence) {
    auto state = std::make_unique<State>();
    state->path = path;
    state->layout = layout;
    state->numbers = layout_numbers(layout);
    internal::TableConfigPtr config = layout_configure(layout, checked, presence);
    state->name = config->tableName;
    state->table = api::openTable(call, std::move(config), internal::OpenMode::write);
    state->warnings = call.warnings();
    return state;
}

std::unique_ptr<State> openWithLayout(const std::filesystem::path& path, const Layout& layout,
                                      internal::FilePresence presence) {
    const std::string checked = checkedPath(path);
    const Call call(path);
    return openWriter(call, path, checked, layout, presence);
}

// Brings the index that is kept up to date. It is given up, with a warning, when that fails.
void keepIndex(WriterState& state, std::uint32_t fewest) noexcept {
    if (state.index == nullptr) {
        return;
    }
    try {
        const Call call(state.path);
        call.check(state.index->update(state.table.get(), fewest, {}));
        call.check(state.index->isMergeDue() ? state.index->merge() : internal::NO_ERROR);
        state.indexedBlock = internal::mt_openBlockStart(state.table.get());
    } catch (const std::exception& failure) {
        state.index.reset();
        try {
            state.warnings.push_back(std::string("the side index is not kept any more: ") + failure.what());
        } catch (const std::bad_alloc&) {
            return;  // there is no memory to say it
        }
    }
}

// Behind an append: a block may have been closed.
void keepIndexUp(WriterState& state) noexcept {
    if (state.index != nullptr && internal::mt_openBlockStart(state.table.get()) != state.indexedBlock) {
        keepIndex(state, FOLLOWED_BLOCKS);
    }
}

State& opened(const std::unique_ptr<State>& state) {
    State& used = use(state, "the writer");
    if (used.table == nullptr) {
        refuse(Code::tableClosed, "the writer was closed");
    }
    return used;
}

const State& describe(const std::unique_ptr<State>& state) {
    return use(state, "the writer");
}

}  // namespace

}  // namespace api

SyncPolicy SyncPolicy::off() noexcept {
    return {};
}

SyncPolicy SyncPolicy::always() noexcept {
    SyncPolicy policy;
    policy.on_ = true;
    return policy;
}

SyncPolicy SyncPolicy::every(std::chrono::seconds time) {
    if (time.count() < 1 || time.count() > std::numeric_limits<std::int32_t>::max()) {
        api::refuse("a commit every " + std::to_string(time.count()) + " seconds");
    }
    SyncPolicy policy = always();
    policy.seconds_ = static_cast<std::int32_t>(time.count());
    return policy;
}

SyncPolicy SyncPolicy::after(std::int32_t appends) {
    if (appends < 1) {
        api::refuse("a commit after " + std::to_string(appends) + " appends");
    }
    SyncPolicy policy = always();
    policy.appends_ = appends;
    return policy;
}

SyncPolicy SyncPolicy::everyOrAfter(std::chrono::seconds time, std::int32_t appends) {
    SyncPolicy policy = every(time);
    policy.appends_ = after(appends).appends_;
    return policy;
}

void setSyncPolicy(const SyncPolicy& policy) noexcept {
    // The file counts pairs of flushes: at least one of them is in the number that was asked for.
    const bool atEach = policy.appends_ == 1;
    internal::tableFileSetSyncPolicy(policy.on_, atEach ? 0 : policy.seconds_, policy.appends_ / 2);
}

Writer::Writer(std::unique_ptr<api::WriterState> state) noexcept : state_(std::move(state)) {
}
Writer::Writer(Writer&&) noexcept = default;
Writer& Writer::operator=(Writer&&) noexcept = default;
Writer::~Writer() = default;

Writer Writer::create(const std::filesystem::path& path, const Layout& layout) {
    if (api::layout_numbers(layout).summarisedStringFieldCount > api::layout_numbers(layout).stringFieldCount) {
        api::refuse("more texts with filters than there are texts");
    }
    return Writer(api::openWithLayout(path, layout, internal::FilePresence::missing));
}

Writer Writer::open(const std::filesystem::path& path) {
    const std::string checked = api::checkedPath(path);
    const api::Call call(path);
    const api::StoredHeader header = api::storedHeader_read(call, checked, TableKind::messages);
    return Writer(api::openWriter(call, path, checked, header.layout, internal::FilePresence::existing));
}

Writer Writer::open(const std::filesystem::path& path, const Layout& layout) {
    return Writer(api::openWithLayout(path, layout, internal::FilePresence::existing));
}

Writer Writer::openOrCreate(const std::filesystem::path& path, const Layout& layout) {
    return Writer(api::openWithLayout(path, layout, internal::FilePresence::any));
}

void Writer::append(const Message& message) {
    api::WriterState& state = api::opened(state_);
    const api::Call call(state.path);
    state.encoder.take(message, state.numbers);
    internal::MessageTable* table = state.table.get();
    const std::int64_t before = internal::mt_dataEnd(table);
    const internal::ErrorCode code = state.encoder.causeOf(internal::mt_writeMessage(table, state.encoder.view()));
    if (code != internal::NO_ERROR) {
        const bool stored = internal::mt_dataEnd(table) != before;
        call.fail(code, std::nullopt, {}, stored ? 1 : 0);
    }
    api::keepIndexUp(state);
}

std::int64_t Writer::appendFrames(std::span<const std::byte> frames) {
    api::WriterState& state = api::opened(state_);
    const api::Call call(state.path);
    std::size_t offset = 0;
    std::int64_t stored = 0;
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(frames.data()), frames.size());
    const internal::ErrorCode code = internal::mt_writeRawMessages(state.table.get(), bytes, &offset, &stored);
    if (code != internal::NO_ERROR) {
        const bool isFrame = code == internal::NO_DATA_ERROR || code == internal::CONSISTENCY_ERROR;
        call.fail(code, isFrame ? std::optional(static_cast<std::int64_t>(offset)) : std::nullopt,
                  isFrame ? "no whole frame of this layout stands there in the bytes given" : "", stored);
    }
    api::keepIndexUp(state);
    return stored;
}

void Writer::keepIndex(const Work& work) {
    api::WriterState& state = api::opened(state_);
    const api::Call call(state.path);
    if (state.index == nullptr) {
        auto index = api::tableIndex_open(call, state.path, state.table.get());
        api::tableIndex_update(call, index.get(), state.table.get(), api::EVERY_BLOCK, work);
        state.index = std::move(index);
        state.indexedBlock = internal::mt_openBlockStart(state.table.get());
    }
}

bool Writer::keepsIndex() const noexcept {
    return state_ != nullptr && state_->index != nullptr;
}

void Writer::drop() {
    api::WriterState& state = api::opened(state_);
    const api::Call call(state.path);
    call.check(internal::mt_drop(state.table.get()));
}

void Writer::commit() {
    api::WriterState& state = api::opened(state_);
    const api::Call call(state.path);
    call.check(internal::mt_commit(state.table.get()));
}

void Writer::close() {
    if (state_ == nullptr || state_->table == nullptr) {
        return;
    }
    const api::Call call(state_->path);
    api::keepIndex(*state_, api::EVERY_BLOCK);
    state_->index.reset();
    const auto table = std::move(state_->table);
    const internal::ErrorCode saved = internal::mt_close(table.get());
    const internal::ErrorCode closed = internal::mt_closeFiles(table.get());
    call.check(saved);
    call.check(closed);
}

bool Writer::isOpen() const noexcept {
    return state_ != nullptr && state_->table != nullptr;
}

const std::filesystem::path& Writer::path() const {
    return api::describe(state_).path;
}

const std::string& Writer::table() const {
    return api::describe(state_).name;
}

const Layout& Writer::layout() const {
    return api::describe(state_).layout;
}

Position Writer::end() const {
    const api::WriterState& state = api::opened(state_);
    const internal::FramePlace place = internal::mt_nextPlace(state.table.get());
    return {place.block, place.frame};
}

const std::vector<std::string>& Writer::warnings() const {
    return api::describe(state_).warnings;
}

}  // namespace tabulo
