#include "messagetable/header_mismatch.h"

#include <algorithm>
#include <new>
#include <span>
#include <string>

#include "core/log.h"

namespace tabulo::internal {

namespace {

std::span<const FieldName> namesOf(FieldKind kind, const MessageTableHeader& header) {
    if (kind == FieldKind::string) {
        const auto count = static_cast<std::size_t>(mtLayout_configuredStringCount(&header.layout));
        return {header.stringFieldNames.data(), count};
    }
    const auto count = static_cast<std::size_t>(std::clamp(header.layout.numericFieldCount, 0, MAX_NUMERIC_FIELDS));
    return {header.numericFieldNames.data(), count};
}

std::int32_t countOf(FieldKind kind, const MessageTableHeader& header) {
    return kind == FieldKind::string ? header.layout.stringFieldCount - BUILT_IN_STRING_FIELDS
                                     : header.layout.numericFieldCount;
}

void writeNames(std::span<const FieldName> names) {
    if (names.empty()) {
        return;
    }
    try {
        std::string joined;
        for (const FieldName& name : names) {
            joined += joined.empty() ? "" : ", ";
            joined += name.length <= 1 ? std::string("<null>")
                                       : std::string(name.text, static_cast<std::size_t>(name.length) - 1);
        }
        log_warningWrite("%s", joined.c_str());
    } catch (const std::bad_alloc&) {
        log_warningWrite("%s", "<out of memory>");
    }
}

}  // namespace

void headerMismatch_writeDetail(const char* path, FieldKind kind, const MessageTableHeader& configured,
                                const MessageTableHeader& stored) noexcept {
    log_warningWrite("%s:\n", path == nullptr ? "(null)" : path);
    log_warningWrite("\tread from config: %d (", countOf(kind, configured));
    writeNames(namesOf(kind, configured));
    log_warningWrite("),\n\tstored in table : %d (", countOf(kind, stored));
    writeNames(namesOf(kind, stored));
    log_warningWrite(")\n");
}

}  // namespace tabulo::internal
