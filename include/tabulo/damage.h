// Finding damage in a message table, and getting everything out of a damaged one that is whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/table_info.h"

namespace tabulo {

enum class FindingKind {
    header,      // the header does not agree with the file
    lengthWord,  // a block's length in front of it
    frame,       // a message
    footer,      // the footer of a block, or its length behind it
    range,       // a smallest or a largest value in a footer
    filter,      // a text of the block is missing in its filter, which is damage; or bits of none are set, a note
    statistics,  // last ids and sequence numbers of a footer or of the header
    tail,        // bytes behind the last message of the open block
    order,       // uniform ids that fall
};

struct Finding {
    FindingKind kind = FindingKind::frame;
    // True for damage; false for what is worth knowing and no damage: ids that fall, bits too many in a filter, and
    // what a writer leaves that was stopped: a stale header, the beginning of a message or zero bytes at the end, a
    // block whose last bytes or whose length were not written yet. Of a table that a process is known to have open for
    // writing the latter is not reported.
    bool damage = true;
    std::optional<std::int64_t> block{};  // file offset of the block; none for the header
    std::int64_t offset = 0;              // in the file
    std::string text{};                   // what is wrong, in a sentence
    // Whole messages of the same block in front of the place, and behind it. Where the end of a block is not to be
    // found, everything up to the next block that is found counts as one.
    std::int64_t intactBefore = 0;
    std::int64_t intactBehind = 0;
};

struct VerifyResult {
    std::int64_t blocks = 0;    // with the open one, if it holds messages
    std::int64_t messages = 0;  // whole ones, also behind damage
    std::int64_t bytes = 0;     // that were checked
    std::int64_t damages = 0;
    std::int64_t notes = 0;
    bool complete = true;  // false when the work was stopped
};

// Checks every block of a message table against its messages: both lengths, the footer, its ranges, every filter bit,
// its statistics; and the header. A footer must say exactly what the messages of its block say; where some of them are
// lost, it must leave room for the others. Behind damage it goes on where the next block can be found: by either of the
// damaged block's lengths, by its number of messages, or by the next footer whose length leads back to where a block
// begins. Findings are reported in the order of the file, those of the header last: they need all the others.
//
// Nothing shows a changed byte of a message's own values that no footer and no index repeats, as long as lengths and
// types stay right. The header is compared with the table as it was when it was saved; its names and layout with
// nothing.
//
// Writes nothing and takes no lock; what a process writes meanwhile is no damage. Throws when the header tells no
// layout to check against; vseek when the table is dropped or cut meanwhile, of which a drop and a refill beyond the
// place reached cannot always be told (see docs/reliability.md); and what `report` throws. Memory: that of a block, in
// pieces of 8 MiB, or of one larger message.
VerifyResult verify(const std::filesystem::path& path, const std::function<void(const Finding&)>& report,
                    const Work& work = {});

// A stretch in which no message is whole, though messages belong there: the whole message, or messages, that are lost.
// No gaps are lengths and footers of blocks whose ends are known, also damaged ones, and the beginning of a message at
// the end of the table. Zero bytes at the end are one: messages may have stood there before the power was lost.
struct Gap {
    std::filesystem::path file{};  // in which it was found
    std::int64_t offset = 0;       // in the table's file, or where it stood there before it was cut out
    std::int64_t length = 0;
    // Of the whole messages around it in that file, or given before. None at an end.
    std::optional<std::int32_t> uniformIdBefore{};
    std::optional<std::int32_t> uniformIdBehind{};
};

struct SalvageSink {
    // Each whole message once, in the order of the places where they stood in the table; of several at one place, which
    // have stood there one after the other, the oldest first. MessageView::position is that original place, its `block`
    // 0 where damage hides in which block it stood; MessageView::ordinal is -1 where it is not known how many messages
    // stood in front, and for all from cut files; next() is then the place behind the frame. `file` is the one that the
    // message was found in: the table's own where it stands there, too.
    std::function<void(const MessageView& message, const std::filesystem::path& file)> message{};
    std::function<void(const Gap&)> gap{};
};

struct SalvageOptions {
    // For a table whose header is lost; otherwise the header's own layout is used, and this one must be the same:
    // configMismatch.
    std::optional<Layout> layout{};
    // What recoveries have cut out, as "<table>.cut-<offset>"; without a value all such files beside the table.
    std::optional<std::vector<std::filesystem::path>> cutFiles{};
};

struct SalvageResult {
    std::int64_t messages = 0;
    std::int64_t fromCutFiles = 0;  // of them
    std::int64_t gaps = 0;
    std::int64_t gapBytes = 0;
    bool complete = true;  // false when the work was stopped
};

// Gives every whole message of a table, also behind damage and out of files that recoveries have cut out. The same
// message at the same original place in several of these files is given once, and so is the same gap; a gap of one file
// that another one has whole messages for, with the same neighbour, is none.
//
// A message is whole when its two lengths and its fields agree. What looks like a message inside another message is
// none; of a damaged message that quotes a whole one it can be told by any of its own ends: only where both of them are
// destroyed the quoted one is given.
//
// Writes nothing and takes no lock. wrongParameter for a cut file whose name does not end in ".cut-<offset>", with or
// without a number behind it; fileOpen for one that is missing; the errors of a Reader when the header is lost and no
// layout is given; vseek when the table is cut meanwhile; what the sink throws. An Error about a cut file names that
// file. Memory as verify, for each file.
SalvageResult salvage(const std::filesystem::path& path, const SalvageSink& sink, const SalvageOptions& options = {},
                      const Work& work = {});

}  // namespace tabulo
