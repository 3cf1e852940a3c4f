#include "jni/message_batch.h"

#include <memory>
#include <string>
#include <vector>

#include "tests/java/jni/embedded_jvm.h"

namespace tabulo::internal::test {
namespace {

class MessageBatches : public WithJvm {
  protected:
    void SetUp() override {
        WithJvm::SetUp();
        if (env != nullptr) {
            receiver = make("Receiver");
        }
    }

    MessageBatchPtr batchOf(BatchKind kind) {
        return MessageBatchPtr(messageBatch_create(env, receiver, "Receiver", kind));
    }

    // Adds a message with these last two strings, behind two others; null is an absent one.
    ErrorCode add(MessageBatch* batch, std::int64_t timestamp, const char* wire, const char* rest) {
        MessageMetadata metadata;
        metadata.timestamp = timestamp;
        metadata.uniformId = static_cast<std::int32_t>(timestamp) + 1000;
        const std::vector<StringField> fields = {field("first"), field("second"), field(wire), field(rest)};
        return messageBatch_add(batch, {metadata, fields, {}}, tableIndex++, &stop);
    }

    static StringField field(const char* text) {
        return text == nullptr ? StringField{}
                               : StringField{text, static_cast<std::int32_t>(std::char_traits<char>::length(text)) + 1};
    }

    jobject receiver = nullptr;
    bool stop = false;
    std::int32_t tableIndex = 0;  // of the next message
};

TEST_F(MessageBatches, TheTextKindHandsOverTimeStampsAndTexts) {
    const auto batch = batchOf(BatchKind::text);
    ASSERT_NE(nullptr, batch);
    EXPECT_EQ(NO_ERROR, add(batch.get(), std::int64_t{1} << 40, "wire", "rest"));
    EXPECT_EQ(NO_ERROR, add(batch.get(), -2, nullptr, ""));
    EXPECT_EQ("", take(receiver)) << "nothing is handed over before it must be";
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_FALSE(stop);
    EXPECT_EQ("1099511627776 wire rest\n-2 null \ntext 2 2 2 2", take(receiver));
}

TEST_F(MessageBatches, TextsOfTheTextKindAreDecoded) {
    const auto batch = batchOf(BatchKind::text);
    EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "\xF0\x9F\x98\x80", "\xC3\xA9"));
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_EQ("1 \xED\xA0\xBD\xED\xB8\x80 \xC3\xA9\ntext 1 1 1 1", take(receiver));
}

TEST_F(MessageBatches, TheCompactKindHandsOverUniformIdsAndWireMessages) {
    const auto batch = batchOf(BatchKind::compact);
    ASSERT_NE(nullptr, batch);
    EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "wire", "rest"));
    EXPECT_EQ(NO_ERROR, add(batch.get(), 2, nullptr, "rest"));
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_EQ("1001 wire\n1002 null\ncompact 2 2 2", take(receiver));
}

TEST_F(MessageBatches, ThePlainKindHandsOverTimeStampsAndBytes) {
    const auto batch = batchOf(BatchKind::plain);
    ASSERT_NE(nullptr, batch);
    EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "wire", "rest"));
    EXPECT_EQ(NO_ERROR, add(batch.get(), 2, "", nullptr));
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_EQ("1 wire rest\n2  null\nbytes 2 2 2 2", take(receiver));
}

TEST_F(MessageBatches, AValueIsHandedOverWithoutTheNulThatEndsIt) {
    const auto batch = batchOf(BatchKind::plain);
    MessageMetadata metadata;
    const StringField fields[] = {{"raw", 3}, {"a\0b\0\0", 5}};
    EXPECT_EQ(NO_ERROR, messageBatch_add(batch.get(), {metadata, fields, {}}, 0, &stop));
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_EQ("0 raw a\xC0\x80\x62\xC0\x80\nbytes 1 1 1 1", take(receiver));
}

TEST_F(MessageBatches, ABatchTellsItsTablesBeforeItsMessagesWhenItIsAskedTo) {
    for (const BatchKind kind : {BatchKind::plain, BatchKind::compact}) {
        receiver = make("TableReceiver");
        const MessageBatchPtr batch(messageBatch_create(env, receiver, "Receiver", kind));
        ASSERT_NE(nullptr, batch);
        messageBatch_tellTables(batch.get());
        tableIndex = 5;
        EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "wire", "rest"));
        EXPECT_EQ(NO_ERROR, add(batch.get(), 2, "wire", "rest"));
        EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
        EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
        const std::string taken = take(receiver);
        EXPECT_TRUE(taken.starts_with("tables [5, 6]\n")) << taken;
        EXPECT_NE(std::string::npos, taken.find("\ntables []\n")) << taken;
    }
}

TEST_F(MessageBatches, AClassThatDoesNotAskForTablesIsNotTold) {
    const auto batch = batchOf(BatchKind::plain);
    messageBatch_tellTables(batch.get());
    EXPECT_EQ("", takeException()) << "the missing method is nobody's failure";
    EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "wire", "rest"));
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_EQ("1 wire rest\nbytes 1 1 1 1", take(receiver));
}

TEST_F(MessageBatches, ATableReceiverThatThrowsIsAJniErrorAndGetsNoMessages) {
    receiver = make("TableReceiver");
    setField(receiver, "refusing", true);
    const MessageBatchPtr batch(messageBatch_create(env, receiver, "Receiver", BatchKind::plain));
    messageBatch_tellTables(batch.get());
    EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "wire", "rest"));
    EXPECT_EQ(JNI_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_EQ("", take(receiver));
    EXPECT_EQ("", takeException());
}

TEST_F(MessageBatches, AnEmptyBatchIsHandedOverToo) {
    const auto batch = batchOf(BatchKind::text);
    EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "wire", "rest"));
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    take(receiver);
    EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_EQ("text 0 0 0 0", take(receiver)) << "what was handed over is not held any more";
}

TEST_F(MessageBatches, AFullBatchIsHandedOverBeforeTheNextMessage) {
    for (const BatchKind kind : {BatchKind::text, BatchKind::compact, BatchKind::plain}) {
        const auto batch = batchOf(kind);
        for (std::size_t i = 0; i < BATCH_CAPACITY; ++i) {
            ASSERT_EQ(NO_ERROR, add(batch.get(), 0, "w", nullptr));
        }
        EXPECT_EQ("", take(receiver));
        EXPECT_EQ(NO_ERROR, add(batch.get(), 77, "w", nullptr));
        const std::string first = take(receiver);
        EXPECT_NE(std::string::npos, first.find(" 1000 1000")) << first.substr(first.rfind('\n') + 1);
        EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
        EXPECT_NE(std::string::npos, take(receiver).find(" 1 1"));
    }
}

TEST_F(MessageBatches, AnyAnswerOtherThanZeroStopsAndTheMessageIsNotAdded) {
    const auto batch = batchOf(BatchKind::text);
    for (const std::int32_t answer : {1, 2, -1}) {
        for (std::size_t i = 0; i < BATCH_CAPACITY; ++i) {
            ASSERT_EQ(NO_ERROR, add(batch.get(), 0, "w", nullptr));
        }
        setField(receiver, "answer", answer);
        EXPECT_EQ(NO_ERROR, add(batch.get(), 77, "not added", nullptr));
        EXPECT_TRUE(stop);
        take(receiver);
        setField(receiver, "answer", 0);
        EXPECT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
        EXPECT_FALSE(stop);
        EXPECT_EQ("text 0 0 0 0", take(receiver));
    }
}

TEST_F(MessageBatches, AReceiverThatThrowsIsAJniErrorAndItsExceptionIsCleared) {
    const auto batch = batchOf(BatchKind::text);
    EXPECT_EQ(NO_ERROR, add(batch.get(), 1, "wire", "rest"));
    setField(receiver, "throwing", true);
    EXPECT_EQ(JNI_ERROR, messageBatch_handOver(batch.get(), &stop));
    EXPECT_FALSE(stop);
    EXPECT_EQ("", takeException());
}

TEST_F(MessageBatches, ABatchNeedsAnObjectOfItsClassWithTheMethod) {
    EXPECT_EQ(nullptr, messageBatch_create(env, nullptr, "Receiver", BatchKind::text));
    EXPECT_EQ(nullptr, messageBatch_create(env, make("Getters"), "Receiver", BatchKind::text));
    EXPECT_EQ(nullptr, messageBatch_create(env, make("Getters"), "Getters", BatchKind::text))
        << "the method is missing";
    EXPECT_EQ(nullptr, messageBatch_create(env, receiver, "NoSuchClass", BatchKind::text));
    EXPECT_EQ("", takeException());
    messageBatch_destroy(nullptr);
}

TEST_F(MessageBatches, ThousandsOfBatchesKeepNoLocalReferences) {
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(8));
    const auto batch = batchOf(BatchKind::text);
    for (int i = 0; i < 300; ++i) {
        for (int j = 0; j < 20; ++j) {
            ASSERT_EQ(NO_ERROR, add(batch.get(), j, "wire", "rest"));
        }
        ASSERT_EQ(NO_ERROR, messageBatch_handOver(batch.get(), &stop));
    }
    env->PopLocalFrame(nullptr);
    const std::string received = take(receiver);
    EXPECT_TRUE(received.ends_with("19 wire rest\ntext 20 20 20 20"));
}

}  // namespace
}  // namespace tabulo::internal::test
