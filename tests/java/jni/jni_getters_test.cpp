#include "jni/jni_getters.h"

#include <limits>
#include <optional>

#include "jni/jni_call.h"
#include "tests/java/jni/embedded_jvm.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

constexpr const char* throwing = "java.lang.UnsupportedOperationException: thrown by a getter on purpose";

class JniGetters : public WithJvm {
  protected:
    void SetUp() override {
        WithJvm::SetUp();
        if (env != nullptr) {
            getters = make("Getters");
        }
    }

    static jobject objectOf(ErrorCode code, const jobject& object) {
        EXPECT_EQ(NO_ERROR, code);
        return object;
    }

    jobject getters = nullptr;
    jobject result = nullptr;
};

TEST_F(JniGetters, BoxedValuesAreUnboxed) {
    std::optional<std::int32_t> integer = 42;
    std::optional<std::int64_t> number = 42;
    std::optional<double> real = 42;
    std::optional<bool> flag;
    EXPECT_EQ(NO_ERROR, callIntegerGetter(env, getters, "getInteger", &integer));
    EXPECT_EQ(NO_ERROR, callLongGetter(env, getters, "getLong", &number));
    EXPECT_EQ(NO_ERROR, callDoubleGetter(env, getters, "getDouble", &real));
    EXPECT_EQ(NO_ERROR, callBooleanGetter(env, getters, "getBoolean", &flag));
    EXPECT_EQ(-7, integer);
    EXPECT_EQ(std::int64_t{1} << 40, number);
    EXPECT_EQ(0.5, real);
    EXPECT_EQ(true, flag);
}

TEST_F(JniGetters, ANullBoxMeansThatNoValueIsGiven) {
    std::optional<std::int32_t> integer = 42;
    std::optional<std::int64_t> number = 42;
    std::optional<double> real = 42;
    std::optional<bool> flag;
    EXPECT_EQ(NO_ERROR, callIntegerGetter(env, getters, "getNullInteger", &integer));
    EXPECT_EQ(NO_ERROR, callLongGetter(env, getters, "getNullLong", &number));
    EXPECT_EQ(NO_ERROR, callDoubleGetter(env, getters, "getNullDouble", &real));
    EXPECT_EQ(NO_ERROR, callBooleanGetter(env, getters, "getNullBoolean", &flag));
    EXPECT_EQ(std::nullopt, integer);
    EXPECT_EQ(std::nullopt, number);
    EXPECT_EQ(std::nullopt, real);
    EXPECT_EQ(std::nullopt, flag);
}

TEST_F(JniGetters, ANameMayCarryItsArguments) {
    std::optional<std::int32_t> integer = 42;
    std::optional<std::int64_t> number = 42;
    std::optional<double> real = 42;
    std::optional<bool> flag;
    EXPECT_EQ(NO_ERROR, callIntegerGetter(env, getters, "getTwice(I)", &integer, 21));
    EXPECT_EQ(NO_ERROR,
              callLongGetter(env, getters, "getTwiceAsLong(I)", &number, std::numeric_limits<std::int32_t>::max()));
    EXPECT_EQ(NO_ERROR, callDoubleGetter(env, getters, "getHalf(I)", &real, 3));
    EXPECT_EQ(NO_ERROR, callBooleanGetter(env, getters, "getIsEven(I)", &flag, 3));
    EXPECT_EQ(42, integer);
    EXPECT_EQ(std::int64_t{2} * std::numeric_limits<std::int32_t>::max(), number);
    EXPECT_EQ(1.5, real);
    EXPECT_EQ(false, flag);
}

TEST_F(JniGetters, ObjectGettersTakeTheirSignatureFromNameOrType) {
    EXPECT_EQ(u"text",
              nativeText(objectOf(callObjectGetter(env, getters, "getText", "Ljava/lang/String;", &result), result)));
    EXPECT_EQ(u"text",
              nativeText(objectOf(callObjectGetter(env, getters, "getText", "()Ljava/lang/String;", &result), result)));
    jobject names = nullptr;
    EXPECT_EQ(NO_ERROR, callObjectGetter(env, getters, "getNames(I)", "[Ljava/lang/String;", &names, 3));
    ASSERT_NE(nullptr, names);
    EXPECT_EQ(3, env->GetArrayLength(static_cast<jarray>(names)));
    EXPECT_EQ(u"42",
              nativeText(objectOf(
                  callObjectGetter(env, getters, "getSum", "(IJ)Ljava/lang/String;", &result, 2, jlong{40}), result)));
    EXPECT_EQ(u"42",
              nativeText(objectOf(
                  callObjectGetter(env, getters, "getSum(IJ)", "Ljava/lang/String;", &result, 2, jlong{40}), result)));
}

TEST_F(JniGetters, TheClassIsTheObjectsOwn) {
    std::optional<std::int32_t> integer = 42;
    EXPECT_EQ(NO_ERROR, callIntegerGetter(env, getters, "getPrivate", &integer));
    EXPECT_EQ(11, integer);
    EXPECT_EQ(u"text",
              nativeText(objectOf(callObjectGetter(env, javaText(u"text"), "toString", "Ljava/lang/String;", &result),
                                  result)));
}

TEST_F(JniGetters, AMethodThatDoesNotExistIsAJniErrorAndItsErrorIsCleared) {
    std::optional<std::int32_t> integer = 42;
    EXPECT_EQ(JNI_ERROR, callIntegerGetter(env, getters, "getMissing", &integer));
    EXPECT_EQ(JNI_ERROR, callIntegerGetter(env, getters, "getLong", &integer)) << "another result is another method";
    EXPECT_EQ("", takeException());
    EXPECT_EQ(std::nullopt, integer);
}

TEST_F(JniGetters, AGetterThatThrowsIsAJniErrorAndItsExceptionTheCauseOfTheCallUnderWay) {
    const JniCall call(env);
    std::optional<std::int32_t> integer;
    EXPECT_EQ(JNI_ERROR, callIntegerGetter(env, getters, "getThrowing", &integer));
    EXPECT_EQ("", takeException());
    ASSERT_NE(nullptr, call.cause());
    env->Throw(call.cause());
    EXPECT_EQ(throwing, takeException());
}

TEST_F(JniGetters, ANullObjectHasNothing) {
    std::optional<std::int32_t> integer = 42;
    EXPECT_EQ(NO_ERROR, callIntegerGetter(env, nullptr, "getInteger", &integer));
    EXPECT_EQ(NO_ERROR, callObjectGetter(env, nullptr, "getText", "Ljava/lang/String;", &result));
    EXPECT_EQ(nullptr, result);
    EXPECT_EQ(std::nullopt, integer);
}

TEST_F(JniGetters, ArraysAreCopiedWhole) {
    ArrayCopy<std::int32_t> ints;
    ASSERT_EQ(NO_ERROR, callIntArrayGetter(env, getters, "getInts", &ints));
    ASSERT_EQ(3, ints.count);
    EXPECT_EQ(3, ints.elements[0]);
    EXPECT_EQ(2, ints.elements[2]);
    ArrayCopy<std::int64_t> longs;
    ASSERT_EQ(NO_ERROR, callLongArrayGetter(env, getters, "getLongs(I)", &longs, 2));
    ASSERT_EQ(2, longs.count);
    EXPECT_EQ(std::numeric_limits<std::int64_t>::min(), longs.elements[1]);
}

TEST_F(JniGetters, ANullArrayIsNotGiven) {
    ArrayCopy<std::int32_t> ints;
    ints.count = 42;
    EXPECT_EQ(NO_ERROR, callIntArrayGetter(env, getters, "getNullInts", &ints));
    EXPECT_EQ(nullptr, ints.elements);
    EXPECT_EQ(0, ints.count);
    ArrayCopy<std::int64_t> longs;
    EXPECT_EQ(NO_ERROR, callLongArrayGetter(env, getters, "getNullLongs", &longs));
    EXPECT_EQ(nullptr, longs.elements);
}

TEST_F(JniGetters, AnArrayThatIsNotReturnedOrCannotBeCopiedIsAnError) {
    ArrayCopy<std::int32_t> ints;
    EXPECT_EQ(JNI_ERROR, callIntArrayGetter(env, getters, "getThrowingInts", &ints));
    EXPECT_EQ(nullptr, ints.elements);
    EXPECT_EQ("", takeException());
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = callIntArrayGetter(env, getters, "getInts", &ints);
    }
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, code);
    EXPECT_EQ(0, ints.count);
}

TEST_F(JniGetters, ThousandsOfCallsKeepNoLocalReferences) {
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(8));
    std::optional<std::int32_t> integer = 42;
    ArrayCopy<std::int32_t> ints;
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(NO_ERROR, callIntegerGetter(env, getters, "getTwice(I)", &integer, i));
        ASSERT_EQ(NO_ERROR, callIntArrayGetter(env, getters, "getInts", &ints));
    }
    env->PopLocalFrame(nullptr);
    EXPECT_EQ(2 * 2999, integer);
}

}  // namespace
}  // namespace tabulo::internal::test
