#include "jni/jni_getters.h"

#include <limits>

#include "tests/java/jni/embedded_jvm.h"

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

    jobject getters = nullptr;
};

TEST_F(JniGetters, BoxedValuesAreUnboxed) {
    std::int32_t integer = 0;
    std::int64_t number = 0;
    double real = 0;
    bool flag = false;
    EXPECT_EQ(1, callIntegerGetter(env, getters, "getInteger", &integer));
    EXPECT_EQ(1, callLongGetter(env, getters, "getLong", &number));
    EXPECT_EQ(1, callDoubleGetter(env, getters, "getDouble", &real));
    EXPECT_EQ(1, callBooleanGetter(env, getters, "getBoolean", &flag));
    EXPECT_EQ(-7, integer);
    EXPECT_EQ(std::int64_t{1} << 40, number);
    EXPECT_EQ(0.5, real);
    EXPECT_TRUE(flag);
}

TEST_F(JniGetters, ANullBoxMeansThatNoValueIsGiven) {
    std::int32_t integer = 42;
    std::int64_t number = 42;
    double real = 42;
    bool flag = true;
    EXPECT_EQ(0, callIntegerGetter(env, getters, "getNullInteger", &integer));
    EXPECT_EQ(0, callLongGetter(env, getters, "getNullLong", &number));
    EXPECT_EQ(0, callDoubleGetter(env, getters, "getNullDouble", &real));
    EXPECT_EQ(0, callBooleanGetter(env, getters, "getNullBoolean", &flag));
    EXPECT_EQ(42, integer);
    EXPECT_EQ(42, number);
    EXPECT_EQ(42, real);
    EXPECT_TRUE(flag);
}

TEST_F(JniGetters, ANameMayCarryItsArguments) {
    std::int32_t integer = 0;
    std::int64_t number = 0;
    double real = 0;
    bool flag = true;
    EXPECT_EQ(1, callIntegerGetter(env, getters, "getTwice(I)", &integer, 21));
    EXPECT_EQ(1, callLongGetter(env, getters, "getTwiceAsLong(I)", &number, std::numeric_limits<std::int32_t>::max()));
    EXPECT_EQ(1, callDoubleGetter(env, getters, "getHalf(I)", &real, 3));
    EXPECT_EQ(1, callBooleanGetter(env, getters, "getIsEven(I)", &flag, 3));
    EXPECT_EQ(42, integer);
    EXPECT_EQ(std::int64_t{2} * std::numeric_limits<std::int32_t>::max(), number);
    EXPECT_EQ(1.5, real);
    EXPECT_FALSE(flag);
}

TEST_F(JniGetters, ObjectGettersTakeTheirSignatureFromNameOrType) {
    EXPECT_EQ(u"text", nativeText(callObjectGetter(env, getters, "getText", "Ljava/lang/String;")));
    EXPECT_EQ(u"text", nativeText(callObjectGetter(env, getters, "getText", "()Ljava/lang/String;")));
    jobject names = callObjectGetter(env, getters, "getNames(I)", "[Ljava/lang/String;", 3);
    ASSERT_NE(nullptr, names);
    EXPECT_EQ(3, env->GetArrayLength(static_cast<jarray>(names)));
    EXPECT_EQ(u"42", nativeText(callObjectGetter(env, getters, "getSum", "(IJ)Ljava/lang/String;", 2, jlong{40})));
    EXPECT_EQ(u"42", nativeText(callObjectGetter(env, getters, "getSum(IJ)", "Ljava/lang/String;", 2, jlong{40})));
}

TEST_F(JniGetters, TheClassIsTheObjectsOwn) {
    std::int32_t integer = 0;
    EXPECT_EQ(1, callIntegerGetter(env, getters, "getPrivate", &integer));
    EXPECT_EQ(11, integer);
    EXPECT_EQ(u"text", nativeText(callObjectGetter(env, javaText(u"text"), "toString", "Ljava/lang/String;")));
}

TEST_F(JniGetters, AMethodThatDoesNotExistLeavesItsErrorPending) {
    std::int32_t integer = 42;
    EXPECT_EQ(0, callIntegerGetter(env, getters, "getMissing", &integer));
    EXPECT_TRUE(takeException().starts_with("java.lang.NoSuchMethodError: "));
    EXPECT_EQ(0, callIntegerGetter(env, getters, "getLong", &integer)) << "another result is another method";
    EXPECT_TRUE(takeException().starts_with("java.lang.NoSuchMethodError: "));
    EXPECT_EQ(42, integer);
}

TEST_F(JniGetters, AGetterThatThrowsLeavesItsExceptionPendingAndNothingElseIsCalled) {
    std::int32_t integer = 42;
    EXPECT_EQ(0, callIntegerGetter(env, getters, "getThrowing", &integer));
    EXPECT_TRUE(env->ExceptionCheck());
    EXPECT_EQ(0, callIntegerGetter(env, getters, "getInteger", &integer));
    EXPECT_EQ(nullptr, callObjectGetter(env, getters, "getText", "Ljava/lang/String;"));
    EXPECT_EQ(42, integer);
    EXPECT_EQ(throwing, takeException());
}

TEST_F(JniGetters, ANullObjectHasNothing) {
    std::int32_t integer = 42;
    EXPECT_EQ(0, callIntegerGetter(env, nullptr, "getInteger", &integer));
    EXPECT_EQ(nullptr, callObjectGetter(env, nullptr, "getText", "Ljava/lang/String;"));
    EXPECT_EQ(42, integer);
}

TEST_F(JniGetters, ArraysAreCopiedWhole) {
    std::int32_t count = 0;
    const auto ints = callIntArrayGetter(env, getters, "getInts", &count);
    ASSERT_NE(nullptr, ints);
    ASSERT_EQ(3, count);
    EXPECT_EQ(3, ints[0]);
    EXPECT_EQ(2, ints[2]);
    const auto longs = callLongArrayGetter(env, getters, "getLongs(I)", &count, 2);
    ASSERT_NE(nullptr, longs);
    ASSERT_EQ(2, count);
    EXPECT_EQ(std::numeric_limits<std::int64_t>::min(), longs[1]);
}

TEST_F(JniGetters, ANullArrayAndOneThatIsNotReturnedGiveNothing) {
    std::int32_t count = 42;
    EXPECT_EQ(nullptr, callIntArrayGetter(env, getters, "getNullInts", &count));
    EXPECT_EQ(0, count);
    count = 42;
    EXPECT_EQ(nullptr, callLongArrayGetter(env, getters, "getNullLongs", &count));
    EXPECT_EQ(0, count);
    count = 42;
    EXPECT_EQ(nullptr, callIntArrayGetter(env, getters, "getThrowingInts", &count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(throwing, takeException());
}

TEST_F(JniGetters, ThousandsOfCallsKeepNoLocalReferences) {
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(8));
    std::int32_t integer = 0;
    std::int32_t count = 0;
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(1, callIntegerGetter(env, getters, "getTwice(I)", &integer, i));
        ASSERT_NE(nullptr, callIntArrayGetter(env, getters, "getInts", &count));
    }
    env->PopLocalFrame(nullptr);
    EXPECT_EQ(2 * 2999, integer);
}

}  // namespace
}  // namespace tabulo::internal::test
