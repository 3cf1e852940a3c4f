#include "api/salvage_source.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "messagetable/torn_tail.h"

namespace tabulo::api {

namespace {

constexpr std::int64_t WORD = internal::BLOCK_LENGTH_SIZE;
constexpr std::int64_t ID_OFFSET = 4;  // of the uniform id in a frame

// Opens a file so that a failure names it.
FileHandle openHere(const std::filesystem::path& path) {
    const Call call(path);
    return file_open(call, checkedPath(path));
}

}  // namespace

SalvageSource::SalvageSource(const Call& call, std::filesystem::path path, std::optional<std::int64_t> base,
                             std::int64_t headerEnd, std::shared_ptr<const TableState> state, const WorkMeter& meter)
    : path_(std::move(path)),
      call_(call, path_),
      isCutFile_(base.has_value()),
      base_(base.value_or(0)),
      state_(std::move(state)),
      table_(call_, openHere(path_), state_->layout, headerEnd - base_),
      frames_(table_, meter),
      blocks_(table_, frames_, meter) {
}

void SalvageSource::begin() {
    begun_ = true;
    if (isCutFile()) {
        beginCutFile(table_.size());
        return;
    }
    position_ = table_.headerEnd;
    blockNumber_ = 0;
}

// A cut may begin anywhere: with a frame that is damaged or whole, with a block, inside a footer or the header.
void SalvageSource::beginCutFile(std::int64_t size) {
    const std::int64_t floor = table_.headerEnd;  // below 0 but for a cut that begins in the header
    position_ = std::max<std::int64_t>(floor, 0);
    const bool isFrame = frames_.frameAt(position_, size) != 0;
    if (position_ >= size || (!isFrame && blocks_.beginsAt(position_, size))) {
        return;
    }
    Segment rest{.begin = position_, .end = size};
    const std::int64_t from =
        isFrame ? frames_.follow(position_, size, std::numeric_limits<std::int64_t>::max(), &rest.firstIndex)
                : position_;
    rest.firstIndex = -1;
    if (const auto found = blocks_.footer(from, size, std::nullopt, floor)) {
        // A block that begins here is read as one: nothing is left in front of it.
        const bool isThisBlock = found->blockStart < position_;
        rest.end = (isThisBlock ? found->end : found->blockStart) - table_.footerSize();
        rest.endIsKnown = true;
        if (isThisBlock) {
            rest.block = found->blockStart;
        }
        position_ = isThisBlock ? found->end : found->blockStart;
    } else {
        ended_ = true;
    }
    // A length word, or less, holds no message.
    if (rest.end - rest.begin >= table_.smallestFrame()) {
        add(rest);
    }
}

void SalvageSource::add(Segment segment) {
    if (segment.begin < segment.end) {
        segments_.push_back(segment);
    }
}

// Reads one more block.
void SalvageSource::step() {
    // What a length word of 0 means is told by what stands behind it: the header may be damaged, and a cut has none.
    internal::BlockCursor cursor =
        internal::blockCursor_at(table_.blocks.get(), position_, internal::BlockCursor::OpenBlocks::unread,
                                 internal::BlockCursor::ZeroWords::open);
    table_.blocks->nextBlockStart = 0;
    table_.call.check(internal::blockCursor_next(&cursor, table_.file.get()));
    const internal::Block& block = cursor.block;
    if (block.state == internal::BlockState::none) {
        ended_ = true;
    } else if (internal::block_isClosed(block)) {
        add({.begin = block.start + WORD,
             .end = block.framesEnd,
             .endIsKnown = true,
             .isWholeBlock = true,
             .block = block.start,
             .firstIndex = 0,
             .blockNumber = blockNumber_});
        position_ = cursor.position;
        blockNumber_ += blockNumber_ < 0 ? 0 : 1;
    } else {
        stepDamaged(block.start, block.state == internal::BlockState::open);
    }
}

// The block's length word is 0, or it and the footer do not agree.
void SalvageSource::stepDamaged(std::int64_t start, bool isOpen) {
    const std::int64_t size = table_.size();
    Segment segment{.begin = start + WORD, .block = start, .firstIndex = 0, .blockNumber = blockNumber_};
    std::int64_t count = 0;
    segment.end = frames_.follow(segment.begin, size, table_.layout.messagesPerBlock, &count);
    const bool isFull = count == table_.layout.messagesPerBlock;
    bool torn = segment.end == size;
    if (isOpen && !torn && (!isFull || size - segment.end < table_.footerSize())) {
        // What was being appended when the file was looked at is no gap. Zero bytes at the end are: messages may have
        // stood there before the power was lost.
        bool empty = false;
        table_.call.check(internal::tornTail_check(table_.file.get(), table_.layout, segment.end, size, &torn));
        table_.call.check(internal::tornTail_isEmpty(table_.file.get(), segment.end, size, &empty));
        torn = isFull || (torn && (!empty || size - segment.end < WORD));
    }
    if (isOpen && torn) {
        ended_ = true;
        add(segment);
        return;
    }
    const BlockExtent extent = blocks_.extent(start, segment.end, count, size);
    segment.end = extent.framesEnd;
    segment.endIsKnown = extent.next < size || extent.isKnown;
    segment.isWholeBlock = extent.isKnown;
    add(segment);
    position_ = extent.next;
    ended_ = position_ >= size;
    blockNumber_ = extent.isKnown && blockNumber_ >= 0 ? blockNumber_ + 1 : -1;
}

// Splits a segment in which not all is whole.
void SalvageSource::search(std::size_t index) {
    const Segment segment = segments_[index];
    const std::vector<FrameRun> runs = frames_.search(segment.begin, segment.end, segment.endIsKnown);
    std::vector<Segment> found;
    for (const FrameRun& run : runs) {
        Segment part = segment;
        part.begin = run.begin;
        part.end = run.end;
        part.isGap = !run.whole;
        part.isSearched = true;
        found.push_back(part);
    }
    numberFrames(&found, runs, segment);
    const auto place = segments_.erase(segments_.begin() + static_cast<std::ptrdiff_t>(index));
    segments_.insert(place, found.begin(), found.end());
}

// Counts on over damage that is known to have been so many messages, and back from the end of a block.
void SalvageSource::numberFrames(std::vector<Segment>* found, const std::vector<FrameRun>& runs,
                                 const Segment& segment) const {
    std::int64_t index = segment.firstIndex;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        Segment& part = (*found)[i];
        const bool isKnown = index >= 0 && index < table_.layout.messagesPerBlock;
        part.firstIndex = isKnown ? index : -1;
        part.block = isKnown || segment.isWholeBlock ? segment.block : std::nullopt;
        index = !isKnown || runs[i].frames < 0 ? -1 : index + runs[i].frames;
    }
    index = segment.isWholeBlock ? table_.layout.messagesPerBlock : -1;
    for (std::size_t i = runs.size(); i > 0 && runs[i - 1].frames >= 0 && index >= 0; --i) {
        index -= runs[i - 1].frames;
        Segment& part = (*found)[i - 1];
        part.firstIndex = part.firstIndex < 0 ? index : part.firstIndex;
    }
}

void SalvageSource::takeMessage(const internal::DecodedMessage& message) {
    const Segment& segment = segments_.front();
    const std::int64_t end = cursor_->position;
    const std::int64_t begin = end - message.frameLength;
    item_.isGap = false;
    item_.begin = base_ + begin;
    item_.end = base_ + end;
    MessageState& state = item_.message;
    state.table = state_;
    decoded_ = message;
    state.message = &decoded_;
    state.frame = reinterpret_cast<const std::byte*>(internal::byteStream_buffer(table_.frames->frames.get()) +
                                                     (begin - cursor_->pieceStart));
    state.position = {segment.block.has_value() ? base_ + *segment.block : 0, base_ + begin};
    const bool isNumbered = nextIndex_ >= 0 && segment.blockNumber >= 0;
    // Block 0 and index -1 make the ordinal -1, and the next place the one behind the frame.
    state.blockOrdinal = isNumbered ? segment.blockNumber : 0;
    state.indexInBlock = isNumbered ? static_cast<std::int32_t>(nextIndex_) : -1;
    nextIndex_ += nextIndex_ < 0 ? 0 : 1;
    lastBegin_ = begin;
    lastEnd_ = end;
    lastId_ = message.metadata.uniformId;
}

void SalvageSource::takeGap() {
    const Segment gap = segments_.front();
    segments_.pop_front();
    item_.isGap = true;
    item_.begin = base_ + gap.begin;
    item_.end = base_ + gap.end;
    item_.idBefore = lastId_;
    item_.idBehind = idBehind();
}

// The id of the next message, which has not been given yet.
std::optional<std::int32_t> SalvageSource::idBehind() {
    for (std::size_t i = 0;;) {
        if (i == segments_.size()) {
            if (ended_) {
                return std::nullopt;
            }
            step();
            continue;
        }
        const Segment& segment = segments_[i];
        std::int32_t id = 0;
        if (segment.isGap) {
            i += 1;
        } else if (frames_.frameAt(segment.begin, segment.end) == 0) {
            search(i);
        } else {
            return table_.bytes.get(segment.begin + ID_OFFSET, &id) ? std::optional(id) : std::nullopt;
        }
    }
}

bool SalvageSource::next() {
    if (!begun_) {
        begin();
    }
    for (;;) {
        while (segments_.empty()) {
            if (ended_) {
                return false;
            }
            step();
        }
        const Segment& segment = segments_.front();
        if (segment.isGap) {
            takeGap();
            return true;
        }
        if (!cursor_.has_value()) {
            const std::int32_t piece = segment.endIsKnown ? internal::BLOCK_PIECE_SIZE : internal::SCAN_PIECE_SIZE;
            cursor_ = internal::frameCursor_forward(table_.frames.get(), table_.file.get(), segment.begin, segment.end,
                                                    piece);
            nextIndex_ = segment.firstIndex;
        }
        if (cursor_->position >= segment.end) {
            cursor_.reset();
            segments_.pop_front();
            continue;
        }
        internal::DecodedMessage message;
        const internal::ErrorCode code = internal::frameCursor_next(&*cursor_, &message);
        if (code == internal::NO_ERROR) {
            takeMessage(message);
            return true;
        }
        const bool isDamage = code == internal::NO_DATA_ERROR || code == internal::CONSISTENCY_ERROR;
        if (!isDamage || segment.isSearched) {
            // What was whole a moment ago is not any more: the file was cut.
            table_.call.fail(isDamage ? internal::VSEEK_ERROR : code, cursor_->position);
        }
        segments_.front().begin = cursor_->position;
        segments_.front().firstIndex = nextIndex_;
        cursor_.reset();
        search(0);
    }
}

bool SalvageSource::sameBytes(std::int64_t begin, std::int64_t end, SalvageSource& other) {
    std::int64_t position = begin;
    while (position < end) {
        const auto mine = table_.bytes.from(position - base_, end - base_, 1);
        const auto others = other.table_.bytes.from(position - other.base_, end - other.base_, 1);
        const std::size_t length = std::min(mine.size(), others.size());
        if (length == 0 ||
            !std::equal(mine.begin(), mine.begin() + static_cast<std::ptrdiff_t>(length), others.begin())) {
            return false;
        }
        position += static_cast<std::int64_t>(length);
    }
    return true;
}

bool SalvageSource::hasSame(const SalvageItem& gap, SalvageSource& other) {
    return gap.begin >= base_ && gap.begin >= other.base_ && sameBytes(gap.begin, gap.end, other);
}

bool SalvageSource::hasInstead(const SalvageItem& gap, SalvageSource& other) {
    const std::int64_t size = table_.size();
    if (gap.begin < base_ || gap.end - base_ > size) {
        return false;
    }
    std::int64_t count = 0;
    const std::int64_t end = gap.end - base_;
    if (frames_.follow(gap.begin - base_, end, std::numeric_limits<std::int64_t>::max(), &count) != end) {
        return false;
    }
    // Frames of the same length may fill the place of others, in another life of the table: one beside it tells.
    const std::int64_t behind = frames_.frameAt(end, size);
    if (behind != 0 && sameBytes(gap.end, gap.end + behind, other)) {
        return true;
    }
    const std::int64_t before = other.lastBegin_ + other.base_;
    return other.lastEnd_ + other.base_ == gap.begin && before >= base_ && sameBytes(before, gap.begin, other);
}

}  // namespace tabulo::api
