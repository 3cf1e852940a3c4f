#include "storage/table_config.h"

#include <new>
#include <string_view>

#include "core/log.h"

namespace tabulo::internal {

namespace {

template <typename Slots>
ErrorCode storeName(Slots& slots, std::int32_t index, const char* name) {
    if (index < 0 || index >= static_cast<std::int32_t>(slots.size())) {
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    try {
        auto& slot = slots[static_cast<std::size_t>(index)];
        name == nullptr ? slot.reset() : static_cast<void>(slot = name);
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    return NO_ERROR;
}

template <typename Slots>
const char* textOf(const Slots& slots, std::int32_t index) {
    if (index < 0 || index >= static_cast<std::int32_t>(slots.size())) {
        return nullptr;
    }
    const auto& slot = slots[static_cast<std::size_t>(index)];
    return slot.has_value() ? slot->c_str() : nullptr;
}

}  // namespace

KSVTboTableConfig* tableConfig_create(const char* tableName, std::int32_t pathCount) noexcept {
    if (tableName == nullptr || pathCount < 1) {
        return nullptr;
    }
    try {
        auto config = std::make_unique<KSVTboTableConfig>();
        config->tableName = tableName;
        config->pathCount = pathCount;
        config->paths.resize(static_cast<std::size_t>(pathCount));
        return config.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void tableConfig_destroy(KSVTboTableConfig* config) noexcept {
    delete config;
}

ErrorCode tableConfig_setPath(KSVTboTableConfig* config, std::int32_t index, const char* dbRoot) noexcept {
    if (config == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (index < 0 || index >= config->pathCount) {
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    auto& path = config->paths[static_cast<std::size_t>(index)];
    path.reset();
    if (dbRoot == nullptr) {
        return NO_ERROR;
    }
    try {
        std::string built(dbRoot);
        const bool endsWithSeparator = built.size() > 1 && (built.back() == '/' || built.back() == '\\');
        if (!endsWithSeparator) {
            built += '\\';
        }
        built += config->tableName;
        path = std::move(built);
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    return NO_ERROR;
}

ErrorCode tableConfig_addStringFieldName(KSVTboTableConfig* config, const char* name) noexcept {
    if (config == nullptr) {
        return NULL_POINTER_ERROR;
    }
    MessageTableLayout& layout = config->layout;
    if (layout.stringFieldCount == MAX_STRING_FIELDS) {
        log_warning("tableConfig_addStringFieldName", "Number of configured string fields exceeds limit (%d)\n",
                    MAX_CONFIGURED_STRING_FIELDS);
        return STRING_FIELDS_LIMIT_ERROR;
    }
    const std::int64_t slot = std::int64_t{layout.stringFieldCount} - BUILT_IN_STRING_FIELDS;
    if (slot < 0 || slot >= MAX_CONFIGURED_STRING_FIELDS) {
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    const ErrorCode code = storeName(config->stringFieldNames, static_cast<std::int32_t>(slot), name);
    if (code == NO_ERROR) {
        layout.stringFieldCount += 1;
        layout.summarisedStringFieldCount += 1;
    }
    return code;
}

ErrorCode tableConfig_addNumericFieldName(KSVTboTableConfig* config, const char* name) noexcept {
    if (config == nullptr) {
        return NULL_POINTER_ERROR;
    }
    MessageTableLayout& layout = config->layout;
    if (layout.numericFieldCount == MAX_NUMERIC_FIELDS) {
        log_warning("tableConfig_addNumericFieldName", "Number of configured numeric fields exceeds limit (%d)\n",
                    MAX_NUMERIC_FIELDS);
        return NUMERIC_FIELDS_LIMIT_ERROR;
    }
    const ErrorCode code = storeName(config->numericFieldNames, layout.numericFieldCount, name);
    if (code == NO_ERROR) {
        layout.numericFieldCount += 1;
    }
    return code;
}

ErrorCode tableConfig_setParams(KSVTboTableConfig* config, const MessageTableLayout* layout,
                                const SessionInfoTags* sessionInfoTags) noexcept {
    if (config == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (sessionInfoTags != nullptr && (sessionInfoTags->count < 0 || sessionInfoTags->count > MAX_SESSION_INFO_TAGS)) {
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    if (layout != nullptr) {
        config->layout = *layout;
    }
    if (sessionInfoTags != nullptr) {
        config->sessionInfoTags = *sessionInfoTags;
    }
    return NO_ERROR;
}

const char* tableConfig_getTableName(const KSVTboTableConfig* config) noexcept {
    return config == nullptr ? nullptr : config->tableName.c_str();
}

const char* tableConfig_getPath(const KSVTboTableConfig* config, std::int32_t index) noexcept {
    return config == nullptr ? nullptr : textOf(config->paths, index);
}

const char* tableConfig_getMasterPath(const KSVTboTableConfig* config) noexcept {
    return tableConfig_getPath(config, 0);
}

const char* tableConfig_getStringFieldName(const KSVTboTableConfig* config, std::int32_t index) noexcept {
    return config == nullptr ? nullptr : textOf(config->stringFieldNames, index);
}

const char* tableConfig_getNumericFieldName(const KSVTboTableConfig* config, std::int32_t index) noexcept {
    return config == nullptr ? nullptr : textOf(config->numericFieldNames, index);
}

const MessageTableLayout* tableConfig_getLayout(const KSVTboTableConfig* config) noexcept {
    return config == nullptr ? nullptr : &config->layout;
}

const SessionInfoTags* tableConfig_getSessionInfoTags(const KSVTboTableConfig* config) noexcept {
    return config == nullptr ? nullptr : &config->sessionInfoTags;
}

std::int32_t tableConfig_getFileCount(const KSVTboTableConfig* config) noexcept {
    return config == nullptr ? 0 : 1;
}

void tableConfig_print(const KSVTboTableConfig* config) noexcept {
    if (config == nullptr) {
        log_write("(null)");
        return;
    }
    // The doubled comma behind the name is part of the format.
    log_write("{ tableName='%s', ", config->tableName.c_str());
    log_write(", replicas = (%d)[ ", config->pathCount);
    for (const auto& path : config->paths) {
        if (path.has_value()) {
            log_write("'%s' ", path->c_str());
        } else {
            log_write("(null) ");
        }
    }
    log_write("] }");
}

}  // namespace tabulo::internal
