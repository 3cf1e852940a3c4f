// A virtual machine that refuses single JNI functions, with and without an exception: what it does for want of its own
// memory, which cannot be made to happen otherwise.
#include <string>
#include <vector>

#include "jni/jni_arrays.h"
#include "jni/jni_exception.h"
#include "jni/jni_strings.h"
#include "jni/log_bridge.h"
#include "jni/message_batch.h"
#include "tests/java/jni/embedded_jvm.h"

namespace tabulo::internal::test {
namespace {

class RefusingJni : public WithJvm {
  protected:
    void SetUp() override {
        WithJvm::SetUp();
        if (env != nullptr) {
            allowed = env->functions;
            functions = *allowed;
        }
    }

    void TearDown() override {
        if (env != nullptr) {
            env->functions = allowed;
        }
        WithJvm::TearDown();
    }

    // Runs something while what the test has changed in `functions` is in force; afterwards nothing is refused any
    // more.
    template <typename Body>
    auto refusing(Body body) {
        env->functions = &functions;
        auto result = body();
        env->functions = allowed;
        functions = *allowed;
        return result;
    }

    // What throwTboException leaves pending meanwhile.
    std::string thrownRefusing(ErrorCode code) {
        return refusing([&] {
                   throwTboException(env, code);
                   return 0;
               }) == 0
                   ? takeException()
                   : "";
    }

    const JNINativeInterface_* allowed = nullptr;
    JNINativeInterface_ functions{};  // the virtual machine's, as the test changes them
};

jclass JNICALL noClass(JNIEnv*, const char*) {
    return nullptr;
}

jstring JNICALL noStringUtf(JNIEnv*, const char*) {
    return nullptr;
}

void throwShortage(JNIEnv* env) {
    env->ThrowNew(env->FindClass("java/lang/OutOfMemoryError"), "on purpose");
}

jlong* JNICALL noLongs(JNIEnv* caller, jlongArray, jboolean*) {
    throwShortage(caller);
    return nullptr;
}

const char* JNICALL noCharacters(JNIEnv*, jstring, jboolean*) {
    return nullptr;
}

jobject JNICALL noGlobalRef(JNIEnv*, jobject) {
    return nullptr;
}

TEST_F(RefusingJni, WithoutATextThePlainestExceptionHasIt) {
    functions.NewStringUTF = noStringUtf;
    EXPECT_EQ("java.lang.RuntimeException: Unable to write to a table opened in read-only mode",
              thrownRefusing(READ_ONLY_ERROR));
}

TEST_F(RefusingJni, WithoutAnyClassTheExceptionThatWasKeptIsThrown) {
    functions.FindClass = noClass;
    EXPECT_EQ("java.lang.RuntimeException: an operation of the library has failed, and its exception cannot be made",
              thrownRefusing(READ_ONLY_ERROR));
}

TEST_F(RefusingJni, WhatPreventsTheExceptionIsLeftPending) {
    functions.NewStringUTF = [](JNIEnv* caller, const char*) -> jstring {
        throwShortage(caller);
        return nullptr;
    };
    EXPECT_EQ("java.lang.OutOfMemoryError: on purpose", thrownRefusing(READ_ONLY_ERROR));
}

TEST_F(RefusingJni, ACauseThatCannotBeKeptIsLeftOut) {
    const JniCall call(env);
    throwPending("java/lang/IllegalStateException", "on purpose");
    functions.NewGlobalRef = noGlobalRef;
    EXPECT_EQ(JNI_ERROR, refusing([&] { return checkJavaException(env); }));
    EXPECT_EQ(nullptr, call.cause());
}

TEST_F(RefusingJni, ArraysWhoseElementsAreRefusedAreNotTakenForNone) {
    std::int32_t count = -1;
    std::unique_ptr<std::int32_t[]> ints;
    jintArray intArray = env->NewIntArray(2);
    functions.GetIntArrayElements = [](JNIEnv*, jintArray, jboolean*) -> jint* { return nullptr; };
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, refusing([&] { return intArrayToNative(env, intArray, &count, &ints); }));
    std::unique_ptr<std::int64_t[]> longs;
    jlongArray longArray = env->NewLongArray(2);
    functions.GetLongArrayElements = noLongs;
    EXPECT_EQ(JNI_ERROR, refusing([&] { return longArrayToNative(env, longArray, &count, &longs); }));
    EXPECT_EQ(-1, count);
    EXPECT_EQ("", takeException());
    const std::int64_t source = 0;
    functions.GetLongArrayElements = noLongs;
    EXPECT_EQ(nullptr, refusing([&] {
                  return nativeToLongArray(env, &source, 2, [](const void*, std::int32_t) { return std::int64_t{}; });
              }));
    EXPECT_EQ("java.lang.OutOfMemoryError: on purpose", takeException());
    EXPECT_EQ(nullptr, nativeToLongArray(env, nullptr, -1, nullptr));
}

TEST_F(RefusingJni, BytesAndTextsThatJavaCannotMakeAreJniErrors) {
    jbyteArray bytes = nullptr;
    functions.NewByteArray = [](JNIEnv* caller, jsize) -> jbyteArray {
        throwShortage(caller);
        return nullptr;
    };
    EXPECT_EQ(JNI_ERROR, refusing([&] { return nativeToByteArray(env, "bytes", &bytes); }));
    jstring text = nullptr;
    functions.NewString = [](JNIEnv* caller, const jchar*, jsize) -> jstring {
        throwShortage(caller);
        return nullptr;
    };
    EXPECT_EQ(JNI_ERROR, refusing([&] { return nativeToJavaString(env, "text", &text); }));
    EXPECT_EQ("", takeException());
}

TEST_F(RefusingJni, CharactersThatAreRefusedAreNotTakenForNone) {
    jstring text = javaText(u"text");
    jobjectArray array = stringArray(1);
    env->SetObjectArrayElement(array, 0, text);
    NativeText copy;
    functions.GetStringUTFChars = noCharacters;
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, refusing([&] { return javaStringToNative(env, text, &copy); }));
    std::vector<NativeText> list;
    functions.GetStringUTFChars = noCharacters;
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, refusing([&] { return stringArrayToNative(env, array, 1, &list); }));
    EXPECT_TRUE(list.empty());
    functions.GetStringUTFChars = noCharacters;
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, refusing([&] {
                  return forEachStringOfArray(env, array, nullptr,
                                              [](void*, const char*) -> ErrorCode { return NO_ERROR; });
              }));
    functions.FindClass = noClass;
    EXPECT_EQ(nullptr, refusing([&] { return nativeToStringArray(env, 1, nullptr, nullptr); }));
}

// Every JNI function that a hand-over needs, refused.
TEST_F(RefusingJni, ABatchThatCannotBeHandedOverIsAnErrorAndIsEmptiedAllTheSame) {
    using Refuse = void (*)(JNINativeInterface_*);
    const std::vector<Refuse> refusals = {
        [](JNINativeInterface_* table) { table->PushLocalFrame = [](JNIEnv*, jint) -> jint { return JNI_ERR; }; },
        [](JNINativeInterface_* table) { table->NewLongArray = [](JNIEnv*, jsize) -> jlongArray { return nullptr; }; },
        [](JNINativeInterface_* table) { table->NewIntArray = [](JNIEnv*, jsize) -> jintArray { return nullptr; }; },
        [](JNINativeInterface_* table) { table->FindClass = noClass; },
        [](JNINativeInterface_* table) {
            table->NewObjectArray = [](JNIEnv*, jsize, jclass, jobject) -> jobjectArray { return nullptr; };
        },
        [](JNINativeInterface_* table) { table->NewByteArray = [](JNIEnv*, jsize) -> jbyteArray { return nullptr; }; }};
    for (std::size_t i = 0; i < refusals.size(); ++i) {
        jobject receiver = make("TableReceiver");
        const MessageBatchPtr batch(messageBatch_create(env, receiver, "Receiver", BatchKind::plain));
        ASSERT_NE(nullptr, batch);
        messageBatch_tellTables(batch.get());
        MessageMetadata metadata;
        const StringField fields[] = {{"first", 6}, {"second", 7}, {"wire", 5}, {"rest", 5}};
        bool stop = false;
        ASSERT_EQ(NO_ERROR, messageBatch_add(batch.get(), {metadata, fields, {}}, 0, &stop));
        refusals[i](&functions);
        EXPECT_NE(NO_ERROR, refusing([&] { return messageBatch_handOver(batch.get(), &stop); })) << "refusal " << i;
        EXPECT_FALSE(messageBatch_isHolding(batch.get()));
        EXPECT_EQ("", take(receiver)) << "refusal " << i;
    }
}

TEST_F(RefusingJni, ABatchOrABridgeWithoutReferencesIsNotMade) {
    jobject receiver = make("Receiver");
    jobject recorder = make("Recorder");
    functions.NewGlobalRef = noGlobalRef;
    EXPECT_EQ(nullptr, refusing([&] { return messageBatch_create(env, receiver, "Receiver", BatchKind::plain); }));
    LogFacility* facility = nullptr;
    functions.NewGlobalRef = noGlobalRef;
    EXPECT_NE(NO_ERROR, refusing([&] { return logBridge_create(env, recorder, &facility); }));
    functions.GetJavaVM = [](JNIEnv*, JavaVM**) -> jint { return JNI_ERR; };
    EXPECT_EQ(JNI_ERROR, refusing([&] { return logBridge_create(env, recorder, &facility); }));
    functions.FindClass = noClass;
    EXPECT_NE(NO_ERROR, refusing([&] { return logBridge_create(env, recorder, &facility); }));
    EXPECT_EQ(nullptr, facility);
}

}  // namespace
}  // namespace tabulo::internal::test
