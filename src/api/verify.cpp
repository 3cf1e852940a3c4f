#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "api/call.h"
#include "api/raw_table.h"
#include "api/stored_header.h"
#include "api/verify_block.h"
#include "api/verify_chain.h"
#include "api/work_meter.h"
#include "tabulo/damage.h"

namespace tabulo {

namespace api {

namespace {

constexpr std::int64_t LAST_BLOCK_END = 8;  // in the header's tail
constexpr std::int64_t DATA_END = 16;
constexpr std::int64_t MESSAGE_COUNT = 24;
constexpr std::int64_t INDEXES = 28;

bool isDamage(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.damage; });
}

class Verification {
  public:
    Verification(const Call& call, FileHandle file, const StoredHeader& header, bool beingWritten,
                 const std::function<void(const Finding&)>& report, const Work& work);

    void run();

    VerifyResult result;

  private:
    BlockVerify verifyBlock(std::int64_t start, VerifyChain* chain);
    void checkNotDropped(bool isGone) const;
    void checkHeader(const VerifyChain& chain, std::int64_t end);
    void compareHeader(const VerifyChain& chain, std::int64_t end, std::vector<Finding>* findings) const;
    void tell(const std::vector<Finding>& findings);

    const Call& call_;
    const StoredHeader& header_;
    const bool beingWritten_;
    const std::function<void(const Finding&)>& report_;
    WorkMeter meter_;
    RawTable table_;
};

Verification::Verification(const Call& call, FileHandle file, const StoredHeader& header, bool beingWritten,
                           const std::function<void(const Finding&)>& report, const Work& work)
    : call_(call),
      header_(header),
      beingWritten_(beingWritten),
      report_(report),
      meter_(work),
      table_(call, std::move(file), header.layout, header.generic.headerSize) {
    meter_.addTotal(header.fileSize);
}

void Verification::tell(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        (finding.damage ? result.damages : result.notes) += 1;
        if (report_) {
            report_(finding);
        }
    }
}

// A table that was dropped, or cut by a recovery, while it was verified is no damaged one. With `isGone` every change
// of it counts: it may have been filled again.
void Verification::checkNotDropped(bool isGone) const {
    internal::TailRecords tail;
    const internal::ErrorCode code = internal::headerTail_read(table_.file.get(), table_.headerEnd, &tail);
    if (code != internal::NO_DATA_ERROR) {  // else the file is shorter than it was, as the size tells
        call_.check(code);
    }
    const bool isChanged = table_.size() != header_.fileSize || tail != header_.tail;
    if ((isGone && isChanged) || table_.size() < header_.fileSize ||
        tail.dataInfo.dataEnd < header_.tail.dataInfo.dataEnd ||
        tail.blockInfo.lastBlockEnd < header_.tail.blockInfo.lastBlockEnd) {
        call_.fail(internal::VSEEK_ERROR, std::nullopt, "the table was dropped or cut while it was verified");
    }
}

// What looks damaged is looked at twice: somebody may be writing.
BlockVerify Verification::verifyBlock(std::int64_t start, VerifyChain* chain) {
    const VerifyChain before = *chain;
    BlockVerify first(table_, meter_, *chain, beingWritten_);
    try {
        first.run(start);
    } catch (const Error& error) {
        if (error.code() == Code::fileRead && error.systemText().empty()) {
            call_.fail(internal::VSEEK_ERROR, error.offset(), "the file became shorter while it was read");
        }
        throw;
    }
    if (!isDamage(first.findings)) {
        return first;
    }
    checkNotDropped(first.isGone);
    *chain = before;
    BlockVerify second(table_, meter_, *chain, beingWritten_);
    second.run(start);
    return second;
}

// What the header's records say, against the table as it was up to where they say that it ends.
void Verification::compareHeader(const VerifyChain& chain, std::int64_t end, std::vector<Finding>* findings) const {
    const internal::TailRecords& tail = header_.tail;
    const std::int64_t offset = table_.headerEnd - internal::HEADER_TAIL_SIZE;
    const auto add = [&](FindingKind kind, std::int64_t place, std::string text, bool damage = true) {
        Finding finding;
        finding.kind = kind;
        finding.damage = damage;
        finding.offset = offset + place;
        finding.text = std::move(text);
        findings->push_back(std::move(finding));
    };
    const auto mayBeUnseen = [&](std::int64_t place) {
        return chain.unseenBegin > 0 && place >= chain.unseenBegin && place <= chain.unseenEnd && place <= end;
    };
    if (end == table_.headerEnd && chain.wantedEnd > end) {
        // A drop cuts the file to its header before it writes a new one.
        if (!beingWritten_) {
            add(FindingKind::header, DATA_END,
                "the header knows of messages, and nothing stands behind it: a drop was stopped half-way", false);
        }
        return;
    }
    if (!chain.sawWantedBlock && !mayBeUnseen(chain.wantedBlock)) {
        add(FindingKind::header, LAST_BLOCK_END,
            "the header's last block ends at " + std::to_string(tail.blockInfo.lastBlockEnd) + ", where none does");
    }
    if (!chain.atWantedEnd.has_value()) {
        if (!mayBeUnseen(chain.wantedEnd)) {
            add(FindingKind::header, DATA_END,
                "the header's data ends at " + std::to_string(tail.dataInfo.dataEnd) +
                    ", where no message does; the file ends at " + std::to_string(end));
        }
        return;
    }
    const VerifiedPlace& place = *chain.atWantedEnd;
    if (place.blockStart != chain.wantedBlock && chain.sawWantedBlock) {
        add(FindingKind::header, LAST_BLOCK_END, "the header's data ends in another block than its last one");
    }
    const std::int64_t messages = std::min<std::int64_t>(place.messages, std::numeric_limits<std::int32_t>::max());
    if (place.messagesKnown && messages != tail.dataInfo.messageCount) {
        add(FindingKind::header, MESSAGE_COUNT,
            "the header counts " + std::to_string(tail.dataInfo.messageCount) + " messages, there are " +
                std::to_string(messages));
    }
    if (place.indexesKnown && !(place.indexes == tail.staticIndexes)) {
        add(FindingKind::statistics, INDEXES,
            "the header's last ids and sequence numbers are not those of the messages");
    }
    if (chain.wantedEnd != end && !beingWritten_) {
        add(FindingKind::header, DATA_END,
            "the table was not closed: its header knows " + std::to_string(chain.wantedEnd) + " of " +
                std::to_string(end) + " bytes",
            false);
    }
}

void Verification::checkHeader(const VerifyChain& chain, std::int64_t end) {
    checkNotDropped(false);
    std::vector<Finding> findings;
    compareHeader(chain, end, &findings);
    internal::TailRecords now;
    const internal::ErrorCode code = internal::headerTail_read(table_.file.get(), table_.headerEnd, &now);
    if (code != internal::NO_DATA_ERROR) {  // else the table was dropped just now: none of this is told
        call_.check(code);
    }
    // A writer has saved it meanwhile, and may have been doing so when it was read.
    if (!isDamage(findings) || now == header_.tail) {
        tell(findings);
    }
}

void Verification::run() {
    VerifyChain chain;
    chain.wantedBlock = static_cast<std::int64_t>(internal::headerTail_openBlock(header_.tail, table_.headerEnd));
    chain.wantedEnd = static_cast<std::int64_t>(header_.tail.dataInfo.dataEnd);
    std::int64_t position = table_.headerEnd;
    try {
        meter_.tell(0);
        for (bool isEnd = false; !isEnd;) {
            const BlockVerify block = verifyBlock(position, &chain);
            position = block.next;
            isEnd = block.isEnd;
            result.blocks += block.isBlock ? 1 : 0;
            result.messages = chain.messages;
            result.bytes = position;
            tell(block.findings);
            meter_.tell(position);
        }
        checkHeader(chain, position);
    } catch (const WorkStopped&) {
        result.complete = false;
    }
}

}  // namespace

}  // namespace api

VerifyResult verify(const std::filesystem::path& path, const std::function<void(const Finding&)>& report,
                    const Work& work) {
    const std::string checked = api::checkedPath(path);
    const api::Call call(path);
    api::FileHandle file = api::file_open(call, checked);
    // Asked before the header is read: a writer that closes the table in between leaves nothing to tell.
    const bool beingWritten = isOpenForWriting(path) == OpenForWriting::yes;
    const api::StoredHeader header = api::storedHeader_read(call, file.get());
    if (header.kind != TableKind::messages) {
        call.fail(internal::TABLE_TYPE_ERROR);
    }
    api::Verification verification(call, std::move(file), header, beingWritten, report, work);
    verification.run();
    return verification.result;
}

}  // namespace tabulo
