// How the native methods of JNITboMessageTable use their table.
#pragma once

#include <jni.h>

#include "jni/jni_exception.h"
#include "messagetable/message_table.h"

namespace tabulo::internal {

// onTable for a message table that Java may close, drop or destroy meanwhile, from whatever object of its own it is
// called at: conditions, a listener, a holder, a logger. The memory of a destroyed table stays until the end.
template <typename Operation>
void onMessageTable(JNIEnv* env, jlong handle, Operation operation) noexcept {
    onTable<MessageTable>(env, handle, [&](MessageTable* table) {
        const MessageTableUse use(table);
        return operation(table);
    });
}

}  // namespace tabulo::internal
