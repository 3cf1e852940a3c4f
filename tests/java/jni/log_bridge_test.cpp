#include "jni/log_bridge.h"

#include <string>
#include <thread>

#include "core/log.h"
#include "tests/java/jni/embedded_jvm.h"
#include "tests/support/captured_output.h"

namespace tabulo::internal::test {
namespace {

class LogBridges : public WithJvm {
  protected:
    void SetUp() override {
        WithJvm::SetUp();
        if (env == nullptr) {
            return;
        }
        recorder = make("Recorder");
        LogFacility* facility = nullptr;
        ASSERT_EQ(NO_ERROR, logBridge_create(env, recorder, &facility));
        log_setFacility(facility);
    }

    void TearDown() override {
        log_setFacility(nullptr);
        WithJvm::TearDown();
    }

    jobject recorder = nullptr;
};

TEST_F(LogBridges, ALineComesAsItsPrefixAndItsMessage) {
    log_warning("f", "number %d, text %s\n", 7, "%n%s");
    EXPECT_EQ("warning2[Tabulo/C WARNING: f(): ]warning2[number 7, text %n%s\n]", take(recorder));
    log_note("g", "note");
    EXPECT_EQ("info2[Tabulo/C NOTE: g(): ]info2[note]", take(recorder));
}

TEST_F(LogBridges, ContinuedLinesAreOneWriteEach) {
    log_warningWrite("%s", "more");
    log_noteWrite("%d", 5);
    EXPECT_EQ("warning2[more]info2[5]", take(recorder));
}

TEST_F(LogBridges, AThreadThatIsNotAttachedDropsItsLines) {
    std::string printed;
    {
        const CapturedOutput errors(stderr);
        std::thread thread([&] {
            log_warning("f", "dropped\n");
            log_note("f", "dropped\n");
            void* attached = nullptr;
            EXPECT_EQ(JNI_EDETACHED, vm->GetEnv(&attached, JNI_VERSION_1_4)) << "the library attaches no thread";
        });
        thread.join();
        printed = errors.text();
    }
    EXPECT_EQ("", printed);
    EXPECT_EQ("", take(recorder));
    log_warning("f", "kept");
    EXPECT_EQ("warning2[Tabulo/C WARNING: f(): ]warning2[kept]", take(recorder));
}

TEST_F(LogBridges, AnAttachedThreadDeliversItsLines) {
    std::thread thread([&] {
        void* attached = nullptr;
        ASSERT_EQ(JNI_OK, vm->AttachCurrentThread(&attached, nullptr));
        log_warning("f", "from a thread");
        vm->DetachCurrentThread();
    });
    thread.join();
    EXPECT_EQ("warning2[Tabulo/C WARNING: f(): ]warning2[from a thread]", take(recorder));
}

TEST_F(LogBridges, APendingExceptionIsPutAsideAndBack) {
    throwPending("java/lang/IllegalStateException", "pending on purpose");
    jthrowable before = env->ExceptionOccurred();
    log_warning("f", "a line");
    jthrowable after = env->ExceptionOccurred();
    EXPECT_EQ("java.lang.IllegalStateException: pending on purpose", takeException());
    EXPECT_TRUE(env->IsSameObject(before, after));
    EXPECT_EQ("warning2[Tabulo/C WARNING: f(): ]warning2[a line]", take(recorder));
}

TEST_F(LogBridges, ALineIsCutAt2047BytesBehindAWholeCharacter) {
    log_warningWrite("%s", std::string(3000, 'x').c_str());
    EXPECT_EQ("warning2[" + std::string(2047, 'x') + "]", take(recorder));
    log_warningWrite("%s", std::string(2047, 'x').c_str());
    EXPECT_EQ("warning2[" + std::string(2047, 'x') + "]", take(recorder));
    log_warningWrite("%s\xC3\xA9", std::string(2046, 'x').c_str());
    EXPECT_EQ("warning2[" + std::string(2046, 'x') + "]", take(recorder));
    log_warningWrite("%s\xC3\xA9", std::string(2045, 'x').c_str());
    EXPECT_EQ("warning2[" + std::string(2045, 'x') + "\xC3\xA9]", take(recorder));
}

TEST_F(LogBridges, ALineThatIsNotCutMayEndInAnything) {
    log_warningWrite("%s", "ends in a byte \xC3");
    EXPECT_EQ("warning2[ends in a byte \xC3\x83]", take(recorder));
}

TEST_F(LogBridges, ThousandsOfLinesKeepNoLocalReferences) {
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(8));
    for (int i = 0; i < 3000; ++i) {
        log_warning("f", "line %d\n", i);
    }
    env->PopLocalFrame(nullptr);
    EXPECT_TRUE(take(recorder).ends_with("[line 2999\n]"));
}

TEST_F(LogBridges, WhatIsNoFacilityIsRefusedAndNothingIsPending) {
    LogFacility* facility = nullptr;
    EXPECT_EQ(NULL_POINTER_ERROR, logBridge_create(env, nullptr, &facility));
    EXPECT_EQ(JNI_ERROR, logBridge_create(env, make("Receiver"), &facility));
    EXPECT_EQ(nullptr, facility);
    EXPECT_EQ("", takeException());
}

}  // namespace
}  // namespace tabulo::internal::test
