// Gathers messages and hands them to a Java object's onGetMessages, up to 1000 at a time.
//
//   kind     Java method                                                      record
//   plain    onGetMessages(int, long[], byte[][], byte[][])                   time stamp, wire message, other fields
//   compact  onGetMessages(int, int[], byte[][])                              uniform id, wire message
//   text     onGetMessages(int, long[], String[], String[])                   time stamp, wire message, other fields
//
// The arrays have exactly as many elements as there are records and are made for each call. An absent value is a null
// element; the NUL that ends a stored value is left out.
#pragma once

#include <jni.h>

#include <cstdint>
#include <memory>

#include "core/error_codes.h"
#include "core/handle.h"
#include "messagetable/message.h"

namespace tabulo::internal {

enum class BatchKind { plain, compact, text };
inline constexpr std::size_t BATCH_CAPACITY = 1000;

struct MessageBatch;

// A batch for a listener of the named class, which it keeps by global references. Null for a null listener, one of
// another class or without the method (a pending exception is printed and cleared), or when memory is short. Freed
// with messageBatch_destroy, on the thread that made it.
MessageBatch* messageBatch_create(JNIEnv* env, jobject listener, const char* className, BatchKind kind) noexcept;
// Deletes the global references; null is accepted.
void messageBatch_destroy(MessageBatch* batch) noexcept;

using MessageBatchPtr = Handle<MessageBatch, messageBatch_destroy>;

// Lets every hand-over be preceded by a call of `void onBatchTables(int[] tableIndexes)` with one index for each
// record, if the listener's own class has that method.
void messageBatch_tellTables(MessageBatch* batch) noexcept;
// Adds a message of the table with the given index; a full batch is handed over first. When Java then answers non-zero,
// *stop is set and the message is not added. JNI_ERROR when Java threw (printed and cleared) or its arrays cannot be
// made; OUT_OF_MEMORY_ERROR.
ErrorCode messageBatch_add(MessageBatch* batch, const MessageView& message, std::int32_t tableIndex,
                           bool* stop) noexcept;
// Hands over what is held, also when it is nothing, and empties the batch. Codes as above.
ErrorCode messageBatch_handOver(MessageBatch* batch, bool* stop) noexcept;
// True when messages are held.
bool messageBatch_isHolding(const MessageBatch* batch) noexcept;

}  // namespace tabulo::internal
