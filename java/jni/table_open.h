// What the initializeNative methods of both kinds of tables do.
#pragma once

#include <jni.h>

#include "jni/config_provider.h"
#include "jni/jni_exception.h"
#include "storage/open_mode.h"

namespace tabulo::internal {

// Builds the configuration from its Java provider, creates a table from it, which takes it over, and opens the table.
// Returns the table's handle; on failure the table is destroyed, the exception raised and the handle 0.
template <typename Table>
jlong openTable(JNIEnv* env, jobject configProvider, jint mode, Table* (*create)(KSVTboTableConfig* config),
                ErrorCode (*open)(Table* table, OpenMode mode), void (*destroy)(Table* table)) noexcept {
    Table* table = nullptr;
    entryPoint(env, [&] {
        KSVTboTableConfig* config = nullptr;
        ErrorCode code = jniConfigProvider_make(&config, env, configProvider);
        if (code != NO_ERROR) {
            return code;
        }
        table = create(config);
        code = table == nullptr ? OUT_OF_MEMORY_ERROR : open(table, static_cast<OpenMode>(mode));
        if (code != NO_ERROR) {
            destroy(table);
            table = nullptr;
        }
        return code;
    });
    return toHandle(table);
}

}  // namespace tabulo::internal
