#include "jni/message_batch.h"

#include <array>
#include <new>
#include <string>
#include <vector>

#include "jni/jni_exception.h"
#include "jni/jni_strings.h"

namespace tabulo::internal {

namespace {

// A value inside the batch's bytes.
struct HeldText {
    std::size_t offset = 0;
    std::size_t length = 0;
    bool absent = true;
};

struct Record {
    std::int64_t value = 0;
    std::int32_t tableIndex = 0;
    std::array<HeldText, 2> texts;
};

const char* signatureOf(BatchKind kind) {
    switch (kind) {
        case BatchKind::plain:
            return "(I[J[[B[[B)I";
        case BatchKind::compact:
            return "(I[I[[B)I";
        default:
            return "(I[J[Ljava/lang/String;[Ljava/lang/String;)I";
    }
}

}  // namespace

struct MessageBatch {
    JNIEnv* env = nullptr;
    jobject listener = nullptr;  // global references; the class keeps the method id valid
    jclass listenerClass = nullptr;
    jmethodID onGetMessages = nullptr;
    jmethodID onBatchTables = nullptr;  // null when nobody asks
    BatchKind kind = BatchKind::plain;
    std::vector<Record> records;
    std::string bytes;
};

namespace {

HeldText hold(std::string* bytes, const StringField& field) {
    if (field.length <= 0) {
        return {};
    }
    const std::string_view text = stringField_withoutNul(field);
    const HeldText held{bytes->size(), text.size(), false};
    bytes->append(text);
    return held;
}

jobject toJava(const MessageBatch& batch, const HeldText& held) {
    if (held.absent) {
        return nullptr;
    }
    const std::string_view text = std::string_view(batch.bytes).substr(held.offset, held.length);
    if (batch.kind == BatchKind::text) {
        return newJavaString(batch.env, text);
    }
    const auto length = static_cast<jsize>(text.size());
    jbyteArray made = batch.env->NewByteArray(length);
    if (made != nullptr) {
        batch.env->SetByteArrayRegion(made, 0, length, reinterpret_cast<const jbyte*>(text.data()));
    }
    return made;
}

// One column of the records as an array of byte[] or String; null with an exception pending, or when memory is short.
jobjectArray textColumn(const MessageBatch& batch, std::size_t column) {
    JNIEnv* env = batch.env;
    const bool asBytes = batch.kind != BatchKind::text;
    jclass elementClass = env->FindClass(asBytes ? "[B" : "java/lang/String");
    if (elementClass == nullptr) {
        return nullptr;
    }
    jobjectArray made = env->NewObjectArray(static_cast<jsize>(batch.records.size()), elementClass, nullptr);
    env->DeleteLocalRef(elementClass);
    for (std::size_t i = 0; made != nullptr && i < batch.records.size(); ++i) {
        const HeldText& held = batch.records[i].texts[column];
        jobject element = toJava(batch, held);
        if (element == nullptr && !held.absent) {
            env->DeleteLocalRef(made);
            return nullptr;
        }
        env->SetObjectArrayElement(made, static_cast<jsize>(i), element);
        env->DeleteLocalRef(element);
    }
    return made;
}

// One number of each record as an array; null with an exception pending.
template <typename Element, typename Array, typename Number>
Array numberColumn(const MessageBatch& batch, Number Record::*number, Array (JNIEnv::*make)(jsize),
                   void (JNIEnv::*fill)(Array, jsize, jsize, const Element*)) {
    std::vector<Element> numbers;
    numbers.reserve(batch.records.size());
    for (const Record& record : batch.records) {
        numbers.push_back(static_cast<Element>(record.*number));
    }
    const auto count = static_cast<jsize>(numbers.size());
    Array made = (batch.env->*make)(count);
    if (made != nullptr) {
        (batch.env->*fill)(made, 0, count, numbers.data());
    }
    return made;
}

jobject valueColumn(const MessageBatch& batch) {
    if (batch.kind == BatchKind::compact) {
        return numberColumn<jint>(batch, &Record::value, &JNIEnv::NewIntArray, &JNIEnv::SetIntArrayRegion);
    }
    return numberColumn<jlong>(batch, &Record::value, &JNIEnv::NewLongArray, &JNIEnv::SetLongArrayRegion);
}

// False with an exception pending.
bool callOnBatchTables(const MessageBatch& batch) {
    if (batch.onBatchTables == nullptr) {
        return true;
    }
    jintArray indexes =
        numberColumn<jint>(batch, &Record::tableIndex, &JNIEnv::NewIntArray, &JNIEnv::SetIntArrayRegion);
    if (indexes == nullptr) {
        return false;
    }
    batch.env->CallVoidMethod(batch.listener, batch.onBatchTables, indexes);
    return batch.env->ExceptionCheck() == JNI_FALSE;
}

// Makes the arrays and calls Java, inside a local frame of its own. What Java threw is pending afterwards; a failure
// without an exception is one of memory.
ErrorCode callListener(const MessageBatch& batch, jint* answer) {
    JNIEnv* env = batch.env;
    const auto count = static_cast<jint>(batch.records.size());
    const bool hasSecond = batch.kind != BatchKind::compact;
    jobject values = valueColumn(batch);
    jobjectArray first = values == nullptr ? nullptr : textColumn(batch, 0);
    jobjectArray second = first == nullptr || !hasSecond ? nullptr : textColumn(batch, 1);
    if (first == nullptr || (hasSecond && second == nullptr) || !callOnBatchTables(batch)) {
        return OUT_OF_MEMORY_ERROR;
    }
    *answer = hasSecond ? env->CallIntMethod(batch.listener, batch.onGetMessages, count, values, first, second)
                        : env->CallIntMethod(batch.listener, batch.onGetMessages, count, values, first);
    return NO_ERROR;
}

bool bind(MessageBatch* batch, jobject listener, const char* className) {
    JNIEnv* env = batch->env;
    jclass found = env->FindClass(className);
    if (found == nullptr) {
        return false;
    }
    if (env->IsInstanceOf(listener, found) == JNI_TRUE) {
        batch->onGetMessages = env->GetMethodID(found, "onGetMessages", signatureOf(batch->kind));
    }
    if (batch->onGetMessages != nullptr) {
        batch->listenerClass = static_cast<jclass>(env->NewGlobalRef(found));
        batch->listener = env->NewGlobalRef(listener);
    }
    env->DeleteLocalRef(found);
    return batch->listener != nullptr && batch->listenerClass != nullptr;
}

}  // namespace

MessageBatch* messageBatch_create(JNIEnv* env, jobject listener, const char* className, BatchKind kind) noexcept {
    if (listener == nullptr) {
        return nullptr;
    }
    auto* batch = new (std::nothrow) MessageBatch;
    if (batch == nullptr) {
        return nullptr;
    }
    batch->env = env;
    batch->kind = kind;
    const bool bound = bind(batch, listener, className);
    if (checkJavaException(env) != NO_ERROR || !bound) {
        messageBatch_destroy(batch);
        return nullptr;
    }
    return batch;
}

void messageBatch_destroy(MessageBatch* batch) noexcept {
    if (batch == nullptr) {
        return;
    }
    if (batch->listener != nullptr) {
        batch->env->DeleteGlobalRef(batch->listener);
    }
    if (batch->listenerClass != nullptr) {
        batch->env->DeleteGlobalRef(batch->listenerClass);
    }
    delete batch;
}

void messageBatch_tellTables(MessageBatch* batch) noexcept {
    JNIEnv* env = batch->env;
    jclass listenerClass = env->GetObjectClass(batch->listener);
    batch->onBatchTables = env->GetMethodID(listenerClass, "onBatchTables", "([I)V");
    env->ExceptionClear();  // a class without the method has no use for it
    env->DeleteLocalRef(listenerClass);
}

ErrorCode messageBatch_add(MessageBatch* batch, const MessageView& message, std::int32_t tableIndex,
                           bool* stop) noexcept {
    if (batch->records.size() >= BATCH_CAPACITY) {
        const ErrorCode code = messageBatch_handOver(batch, stop);
        if (code != NO_ERROR || *stop) {
            return code;
        }
    }
    try {
        Record record;
        record.tableIndex = tableIndex;
        record.value = batch->kind == BatchKind::compact ? message.metadata.uniformId : message.metadata.timestamp;
        record.texts[0] = hold(&batch->bytes, message_wire(message));
        if (batch->kind != BatchKind::compact) {
            record.texts[1] = hold(&batch->bytes, message_nonMetadata(message));
        }
        batch->records.push_back(record);
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    return NO_ERROR;
}

ErrorCode messageBatch_handOver(MessageBatch* batch, bool* stop) noexcept {
    JNIEnv* env = batch->env;
    constexpr jint localReferences = 8;
    *stop = false;
    jint answer = 0;
    ErrorCode code = JNI_ERROR;
    if (env->PushLocalFrame(localReferences) == 0) {
        try {
            code = callListener(*batch, &answer);
        } catch (const std::bad_alloc&) {
            code = OUT_OF_MEMORY_ERROR;
        }
        const ErrorCode thrown = checkJavaException(env);
        code = thrown != NO_ERROR ? thrown : code;
        env->PopLocalFrame(nullptr);
    } else {
        (void)checkJavaException(env);  // the code is JNI_ERROR already
    }
    batch->records.clear();
    batch->bytes.clear();
    *stop = code == NO_ERROR && answer != 0;
    return code;
}

bool messageBatch_isHolding(const MessageBatch* batch) noexcept {
    return !batch->records.empty();
}

}  // namespace tabulo::internal
