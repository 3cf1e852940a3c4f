#include "api/verify_block.h"

#include <algorithm>
#include <utility>

#include "messagetable/torn_tail.h"

namespace tabulo::api {

namespace {

constexpr std::int64_t WORD = internal::BLOCK_LENGTH_SIZE;

std::string number(std::int64_t value) {
    return std::to_string(value);
}

}  // namespace

Finding& BlockVerify::add(FindingKind kind, std::int64_t offset, std::string text, bool damage) {
    Finding finding;
    finding.kind = kind;
    finding.damage = damage;
    finding.block = start_;
    finding.offset = offset;
    finding.text = std::move(text);
    finding.intactBefore = whole_;
    findings.push_back(std::move(finding));
    return findings.back();
}

// All messages have been counted: tells how many stand behind each place.
void BlockVerify::settle() {
    if (falls_ > 0) {
        add(FindingKind::order, firstFall_,
            "a uniform id is lower than the one before it, at " + number(falls_) + " place(s) of this block", false)
            .intactBefore = -1;
    }
    for (Finding& finding : findings) {
        // What is told of a block as a whole was found before, or behind, its messages.
        const bool isInFront = finding.kind == FindingKind::lengthWord;
        finding.intactBefore = isInFront ? 0 : finding.intactBefore;
        finding.intactBehind = finding.intactBefore < 0 ? 0 : whole_ - finding.intactBefore;
        finding.intactBefore = std::max<std::int64_t>(finding.intactBefore, 0);
    }
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& left, const Finding& right) { return left.offset < right.offset; });
}

void BlockVerify::run(std::int64_t start) {
    start_ = start;
    next = start;
    chain_.passBlockStart(start);
    internal::blockSummary_reset(&table_.frames->summary, true);
    table_.frames->summary.staticIndexes = chain_.indexes;
    internal::BlockCursor cursor =
        internal::blockCursor_at(table_.blocks.get(), start, internal::BlockCursor::OpenBlocks::scanned,
                                 internal::BlockCursor::ZeroWords::judged);
    table_.blocks->nextBlockStart = 0;
    table_.call.check(internal::blockCursor_next(&cursor, table_.file.get()));
    const internal::Block& block = cursor.block;
    switch (block.state) {
        case internal::BlockState::none:
            isEnd = true;
            isBlock = false;
            checkRest(start, table_.size());
            break;
        case internal::BlockState::open:
            checkOpen(block);
            break;
        case internal::BlockState::damaged:
            checkDamaged(block);
            break;
        case internal::BlockState::gone:
            isGone = true;
            checkDamaged(block);
            break;
        default:
            checkClosed(block);
            break;
    }
    settle();
}

void BlockVerify::checkClosed(const internal::Block& block) {
    next = block.framesEnd + table_.footerSize();
    if (block.state == internal::BlockState::torn) {
        // A writer that was stopped leaves such a word; but it saves the header's tail behind the word only.
        const bool known = chain_.wantedBlock > start_;
        if (known || !beingWritten_) {
            add(FindingKind::lengthWord, start_,
                "the block's length is not the " + number(next - start_) +
                    " bytes that its messages and its footer take",
                known);
        }
    }
    checkFrames(start_ + WORD, block.framesEnd, true);
    checkCount(block.framesEnd);
    checkFooter(next);
}

void BlockVerify::checkOpen(const internal::Block& block) {
    if (block.damage != internal::NO_ERROR) {
        checkDamaged(block);
        return;
    }
    const std::int64_t size = internal::tableFileCachedSize(table_.file.get());
    checkFrames(start_ + WORD, block.framesEnd, false);
    next = block.framesEnd + table_.footerSize();
    if (block.messageCount == table_.layout.messagesPerBlock && next <= size) {
        checkUnclosedFooter(block);
        return;
    }
    isEnd = true;
    next = size;
    isBlock = block.messageCount > 0;
    checkRest(block.framesEnd, size);
}

// A full block with a length word of 0 and a footer: the writer was stopped between the two, or is between them.
void BlockVerify::checkUnclosedFooter(const internal::Block& block) {
    const bool isLast = next >= table_.size();
    if (!isLast || !beingWritten_) {
        add(FindingKind::lengthWord, start_,
            "the block's length is not written, although its messages and its footer are there", !isLast);
    }
    bool empty = false;
    table_.call.check(internal::tornTail_isEmpty(table_.file.get(), block.framesEnd, next, &empty));
    if (empty && isLast) {
        add(FindingKind::tail, block.framesEnd, "zero bytes stand where the block's footer belongs", false);
        return;
    }
    checkFooter(next);
}

// What stands behind the last message of the open block: nothing, or what a crash leaves there.
void BlockVerify::checkRest(std::int64_t begin, std::int64_t end) {
    if (begin < end && !beingWritten_) {
        add(FindingKind::tail, begin,
            number(end - begin) + " bytes at the end are what a writer that was stopped has left", false);
    }
    next = end;
}

void BlockVerify::checkDamaged(const internal::Block& block) {
    const std::int64_t size = table_.size();
    const std::int64_t begin = start_ + WORD;
    std::int64_t count = 0;
    const std::int64_t reached = frames_.follow(begin, size, table_.layout.messagesPerBlock, &count);
    const BlockExtent extent = blocks_.extent(start_, reached, count, size);
    std::uint64_t word = 0;
    (void)table_.bytes.get(start_, &word);  // a block that is damaged has one
    next = extent.next;
    isEnd = next >= size;
    const bool isOpen = block.state == internal::BlockState::open && isEnd;
    if (extent.isKnown && word != static_cast<std::uint64_t>(next - start_)) {
        add(FindingKind::lengthWord, start_,
            "the block's length says " + std::to_string(word) + ", it takes " + number(next - start_) + " bytes");
    } else if (!extent.isKnown && !isOpen) {
        add(FindingKind::lengthWord, start_,
            "neither the block's length, which says " + std::to_string(word) +
                ", nor a footer tells where the block ends");
    }
    checkFrames(begin, extent.framesEnd, extent.isKnown || !isEnd);
    if (extent.isKnown) {
        checkCount(extent.framesEnd);
        checkFooter(next);
        return;
    }
    chain_.messagesKnown = false;
    chain_.indexesKnown = false;
    chain_.unseenBegin = chain_.unseenBegin == 0 ? reached : chain_.unseenBegin;
    chain_.unseenEnd = next;
}

void BlockVerify::addMessage(const internal::DecodedMessage& message, std::int64_t offset, std::int64_t end) {
    internal::BlockSummary& summary = table_.frames->summary;
    internal::blockSummary_add(&summary, table_.layout, internal::message_view(message, table_.layout),
                               message.frameLength);
    const std::int32_t id = message.metadata.uniformId;
    if (chain_.lastUniformId.has_value() && id < *chain_.lastUniformId) {
        firstFall_ = falls_ == 0 ? offset : firstFall_;
        falls_ += 1;
    }
    chain_.lastUniformId = id;
    whole_ += 1;
    chain_.messages += 1;
    chain_.indexes = summary.staticIndexes;
    if (whole_ < table_.layout.messagesPerBlock) {
        chain_.passEnd(end);
    }
    meter_.addMessage(end);
}

void BlockVerify::addGap(const FrameRun& gap, std::int64_t end, bool endIsKnown) {
    const bool isTail = gap.end == end && !endIsKnown;
    std::string text = isTail ? "no message stands in the last " : "no message stands in these ";
    text += number(gap.end - gap.begin) + " bytes";
    text += gap.frames > 0 ? ", where " + number(gap.frames) + " did" : "";
    add(isTail ? FindingKind::tail : FindingKind::frame, gap.begin, std::move(text));
    lost_ = true;
    chain_.messagesKnown = false;
    chain_.indexesKnown = false;
    chain_.passEnd(gap.end);
}

// Adds messages up to the first that is not whole, or to the end.
void BlockVerify::addFrames(std::int64_t* begin, std::int64_t end, bool endIsKnown) {
    internal::FrameCursor cursor =
        internal::frameCursor_forward(table_.frames.get(), table_.file.get(), *begin, end,
                                      endIsKnown ? internal::BLOCK_PIECE_SIZE : internal::SCAN_PIECE_SIZE);
    internal::ErrorCode code = internal::NO_ERROR;
    while (*begin < end && code == internal::NO_ERROR) {
        internal::DecodedMessage message;
        code = internal::frameCursor_next(&cursor, &message);
        if (code == internal::NO_ERROR) {
            addMessage(message, *begin, cursor.position);
            *begin = cursor.position;
        }
    }
    if (code != internal::NO_ERROR && code != internal::NO_DATA_ERROR && code != internal::CONSISTENCY_ERROR) {
        table_.call.fail(code, *begin);
    }
}

void BlockVerify::checkFrames(std::int64_t begin, std::int64_t end, bool endIsKnown) {
    std::int64_t position = begin;
    addFrames(&position, end, endIsKnown);
    if (position >= end) {
        return;
    }
    for (const FrameRun& run : frames_.search(position, end, endIsKnown)) {
        if (run.whole) {
            position = run.begin;
            addFrames(&position, run.end, true);
        } else {
            addGap(run, end, endIsKnown);
        }
    }
}

// Whole frames fill a closed block, but another number of them than belongs into it.
void BlockVerify::checkCount(std::int64_t framesEnd) {
    if (!lost_ && whole_ != table_.layout.messagesPerBlock) {
        add(FindingKind::frame, framesEnd,
            "the block holds " + number(whole_) + " messages instead of " + number(table_.layout.messagesPerBlock));
        lost_ = true;
        chain_.messagesKnown = false;
        chain_.indexesKnown = false;
    }
}

}  // namespace tabulo::api
