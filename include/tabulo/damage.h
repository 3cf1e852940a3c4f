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
    filter,      // a text of the block is missing in its filter
    statistics,  // last ids and sequence numbers of a footer or of the header
    tail,        // bytes behind the last message
    order,       // uniform ids that fall
};

struct Finding {
    FindingKind kind = FindingKind::frame;
    // True for damage; false for what is worth knowing and no damage: ids that fall, and a table that was not closed,
    // so that its header is stale. Of a table that a process has open for writing the latter is not reported.
    bool damage = true;
    std::optional<std::int64_t> block{};  // file offset of the block
    std::int64_t offset = 0;              // in the file
    std::string text{};                   // what is wrong, in a sentence
    // Whole messages of the same block in front of the place, and behind it.
    std::int64_t intactBefore = 0;
    std::int64_t intactBehind = 0;
};

struct VerifyResult {
    std::int64_t blocks = 0;  // with the open one
    std::int64_t messages = 0;
    std::int64_t bytes = 0;  // that were checked
    std::int64_t damages = 0;
    std::int64_t notes = 0;
    bool complete = true;  // false when the work was stopped
};

// Checks every block of a message table against its messages: both lengths, the footer, its ranges, every filter bit,
// its statistics; and the header. Behind damage it goes on where the next block can be found. Findings are reported in
// the order of the file. Writes nothing. Throws when the header tells no layout to check against.
VerifyResult verify(const std::filesystem::path& path, const std::function<void(const Finding&)>& report,
                    const Work& work = {});

// A stretch in which no message is whole.
struct Gap {
    std::filesystem::path file{};  // in which it was looked for last
    std::int64_t offset = 0;       // in the table's file, or where it stood there before it was cut out
    std::int64_t length = 0;
    std::optional<std::int32_t> uniformIdBefore{};  // of the whole messages around it
    std::optional<std::int32_t> uniformIdBehind{};
};

struct SalvageSink {
    // Each whole message once, in the order in which they stood in the table. MessageView::position is that original
    // place; `file` is the one that the message was found in.
    std::function<void(const MessageView& message, const std::filesystem::path& file)> message{};
    std::function<void(const Gap&)> gap{};
};

struct SalvageOptions {
    // For a table whose header is lost; otherwise the header's own layout is used, and this one must be the same.
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

// Gives every whole message of a table, also behind damage and out of files that recoveries have cut out. A message
// that stands in the table and in such a file at the same original place is given once; what looks like a message
// inside another message is none. Writes nothing. wrongParameter for a cut file whose name tells no offset; the errors
// of a Reader when the header is lost and no layout is given; what the sink throws.
SalvageResult salvage(const std::filesystem::path& path, const SalvageSink& sink, const SalvageOptions& options = {},
                      const Work& work = {});

}  // namespace tabulo
