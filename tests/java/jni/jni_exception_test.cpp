#include "jni/jni_exception.h"

#include <stdexcept>
#include <string>

#include "tests/java/jni/embedded_jvm.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/captured_output.h"

namespace tabulo::internal::test {
namespace {

class JniException : public WithJvm {
  protected:
    // Code and text of the pending exception of the library, which is cleared.
    std::string takeThrown() {
        jthrowable pending = env->ExceptionOccurred();
        if (pending == nullptr) {
            return "nothing";
        }
        env->ExceptionClear();
        const jmethodID getCode = env->GetMethodID(env->GetObjectClass(pending), "getErrorCode", "()I");
        if (getCode == nullptr) {
            env->ExceptionClear();
            return "another exception";
        }
        const jint code = env->CallIntMethod(pending, getCode);
        if (env->ExceptionCheck() == JNI_TRUE) {
            return "an exception without a code";
        }
        const jmethodID getMessage =
            env->GetMethodID(env->GetObjectClass(pending), "getMessage", "()Ljava/lang/String;");
        jobject message = env->CallObjectMethod(pending, getMessage);
        if (env->ExceptionCheck() == JNI_TRUE) {
            return "an exception without a message";
        }
        const std::u16string text = nativeText(message);
        return std::to_string(code) + " " + std::string(text.begin(), text.end());  // plain ASCII
    }
};

TEST_F(JniException, ACodeIsThrownWithItsText) {
    throwTboException(env, INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ("20 Index out of bounds", takeThrown());
    throwTboException(env, CONFIG_MISMATCH_ERROR);
    EXPECT_EQ("38 Unable to open a table created with different configuration", takeThrown());
}

TEST_F(JniException, ACodeThatThereIsNotIsAnUnknownError) {
    for (const std::int32_t number : {39, -1, 2147483647, 0}) {
        throwTboException(env, static_cast<ErrorCode>(number));
        EXPECT_EQ(std::to_string(number) + " Unknown error", takeThrown());
    }
}

TEST_F(JniException, WhateverIsPendingIsPrintedAndReplaced) {
    for (const ErrorCode code : {JNI_ERROR, NULL_POINTER_ERROR}) {
        std::string printed;
        {
            const CapturedOutput errors(stderr);
            throwPending("java/lang/IllegalStateException", "pending on purpose");
            throwTboException(env, code);
            printed = errors.text();
        }
        EXPECT_NE(std::string::npos, printed.find("pending on purpose")) << printed;
        EXPECT_EQ(std::to_string(code) + " " + getErrorMessage(code), takeThrown());
    }
}

TEST_F(JniException, CheckingPrintsAndClearsWhatIsPending) {
    EXPECT_EQ(NO_ERROR, checkJavaException(env));
    std::string printed;
    {
        const CapturedOutput errors(stderr);
        throwPending("java/lang/IllegalStateException", "pending on purpose");
        EXPECT_EQ(JNI_ERROR, checkJavaException(env));
        printed = errors.text();
    }
    EXPECT_NE(std::string::npos, printed.find("pending on purpose")) << printed;
    EXPECT_EQ("", takeException());
    EXPECT_EQ(NO_ERROR, checkJavaException(env));
}

TEST_F(JniException, DescribingLeavesTheSameExceptionPending) {
    describeJavaException(env);
    EXPECT_EQ("", takeException());
    throwPending("java/lang/IllegalStateException", "pending on purpose");
    jthrowable before = env->ExceptionOccurred();
    describeJavaException(env);
    jthrowable after = env->ExceptionOccurred();
    EXPECT_EQ("java.lang.IllegalStateException: pending on purpose", takeException());
    EXPECT_TRUE(env->IsSameObject(before, after));
}

TEST_F(JniException, OnlyAZeroHandleThrows) {
    EXPECT_TRUE(checkHandle(env, 1, TABLE_CLOSED_ERROR));
    EXPECT_TRUE(checkHandle(env, -1, TABLE_CLOSED_ERROR));
    EXPECT_EQ("nothing", takeThrown());
    EXPECT_FALSE(checkHandle(env, 0, ITERATOR_CLOSED_ERROR));
    EXPECT_EQ("30 Attempting to perform operations on a closed iterator", takeThrown());
}

TEST_F(JniException, AHandleIsTheAddressOfItsObject) {
    int object = 0;
    const jlong handle = toHandle(&object);
    EXPECT_EQ(&object, handleTo<int>(handle));
    EXPECT_EQ(nullptr, handleTo<int>(0));
    EXPECT_EQ(0, toHandle<int>(nullptr));
}

TEST_F(JniException, NoExceptionOfTheLibrarysOwnLanguageLeavesAnEntryPoint) {
    entryPoint(env, []() -> ErrorCode { throw std::bad_alloc(); });
    EXPECT_EQ("1 Out of memory", takeThrown());
    entryPoint(env, []() -> ErrorCode { throw std::runtime_error("on purpose"); });
    EXPECT_EQ("21 JNI error", takeThrown());
    entryPoint(env, []() -> ErrorCode { return READ_ONLY_ERROR; });
    EXPECT_EQ("19 Unable to write to a table opened in read-only mode", takeThrown());
    entryPoint(env, []() -> ErrorCode { return NO_ERROR; });
    EXPECT_EQ("nothing", takeThrown());
}

TEST_F(JniException, TheTextOfACodeNeedsNoMemoryOfOurs) {
    {
        const AllocationFailure failure = AllocationFailure::fromThenOn(1);
        entryPoint(env, []() -> ErrorCode { throw std::bad_alloc(); });
    }
    EXPECT_EQ("1 Out of memory", takeThrown());
}

}  // namespace
}  // namespace tabulo::internal::test
