#include "jni/jni_arrays.h"

#include <array>
#include <limits>
#include <vector>

#include "tests/java/jni/embedded_jvm.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

class JniArrays : public WithJvm {
  protected:
    jintArray ints(const std::vector<jint>& values) {
        jintArray made = env->NewIntArray(static_cast<jsize>(values.size()));
        env->SetIntArrayRegion(made, 0, static_cast<jsize>(values.size()), values.data());
        return made;
    }

    jlongArray longs(const std::vector<jlong>& values) {
        jlongArray made = env->NewLongArray(static_cast<jsize>(values.size()));
        env->SetLongArrayRegion(made, 0, static_cast<jsize>(values.size()), values.data());
        return made;
    }

    // What a copying operation makes of an array; the code must be `code`.
    template <typename Native, typename Array>
    static std::unique_ptr<Native[]> copied(ErrorCode code,
                                            ErrorCode (*copy)(JNIEnv*, Array, std::int32_t*,
                                                              std::unique_ptr<Native[]>*),
                                            JNIEnv* environment, Array array, std::int32_t* count) {
        std::unique_ptr<Native[]> made(new Native[1]);
        EXPECT_EQ(code, copy(environment, array, count, &made));
        return made;
    }

    std::vector<jlong> valuesOf(jlongArray array) {
        std::vector<jlong> values(static_cast<std::size_t>(env->GetArrayLength(array)));
        env->GetLongArrayRegion(array, 0, env->GetArrayLength(array), values.data());
        return values;
    }
};

TEST_F(JniArrays, TheFirstElementsAreCopied) {
    std::int32_t count = 2;
    const auto copy = copied(NO_ERROR, intArrayToNative, env, ints({7, -8, 9}), &count);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(2, count);
    EXPECT_EQ(7, copy[0]);
    EXPECT_EQ(-8, copy[1]);
}

TEST_F(JniArrays, ANegativeCountCopiesTheWholeArray) {
    std::int32_t count = -1;
    const auto copy = copied(NO_ERROR, longArrayToNative, env, longs({5, std::numeric_limits<jlong>::min()}), &count);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(2, count);
    EXPECT_EQ(std::numeric_limits<jlong>::min(), copy[1]);
    count = std::numeric_limits<std::int32_t>::min();
    jdoubleArray doubles = env->NewDoubleArray(1);
    const std::array<jdouble, 1> half = {0.5};
    env->SetDoubleArrayRegion(doubles, 0, 1, half.data());
    const auto third = copied(NO_ERROR, doubleArrayToNative, env, doubles, &count);
    ASSERT_NE(nullptr, third);
    EXPECT_EQ(1, count);
    EXPECT_EQ(0.5, third[0]);
}

TEST_F(JniArrays, AnEmptyCopyIsNoFailure) {
    std::int32_t count = 0;
    EXPECT_NE(nullptr, copied(NO_ERROR, intArrayToNative, env, ints({1}), &count));
    EXPECT_EQ(0, count);
    count = -1;
    EXPECT_NE(nullptr, copied(NO_ERROR, intArrayToNative, env, ints({}), &count));
    EXPECT_EQ(0, count);
}

TEST_F(JniArrays, ANullArrayIsNothingToCopyAndNoError) {
    std::int32_t count = 3;
    EXPECT_EQ(nullptr, copied(NO_ERROR, intArrayToNative, env, jintArray{}, &count));
    EXPECT_EQ(nullptr, copied(NO_ERROR, longArrayToNative, env, jlongArray{}, &count));
    EXPECT_EQ(nullptr, copied(NO_ERROR, doubleArrayToNative, env, jdoubleArray{}, &count));
    EXPECT_EQ(3, count);
}

TEST_F(JniArrays, AShortArrayIsRefusedAndTheVirtualMachineIsNotAsked) {
    std::int32_t count = 3;
    EXPECT_EQ(nullptr, copied(JNI_ERROR, intArrayToNative, env, ints({1, 2}), &count));
    EXPECT_EQ(3, count);
}

TEST_F(JniArrays, AnArrayThatCannotBeCopiedForWantOfMemoryIsNotTakenForNone) {
    jintArray array = ints({1, 2});
    std::int32_t count = -1;
    std::unique_ptr<std::int32_t[]> copy;
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = intArrayToNative(env, array, &count, &copy);
    }
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, code);
    EXPECT_EQ(nullptr, copy);
}

TEST_F(JniArrays, TheCopyIsNotConnectedWithTheArray) {
    jintArray array = ints({1});
    std::int32_t count = 1;
    const auto copy = copied(NO_ERROR, intArrayToNative, env, array, &count);
    copy[0] = 99;
    jint value = 0;
    env->GetIntArrayRegion(array, 0, 1, &value);
    EXPECT_EQ(1, value);
}

std::int64_t squareOf(const void* source, std::int32_t index) {
    return *static_cast<const std::int64_t*>(source) + std::int64_t{index} * index;
}

TEST_F(JniArrays, ALongArrayIsFilledByItsGetter) {
    const std::int64_t base = std::int64_t{1} << 40;
    jlongArray made = nativeToLongArray(env, &base, 3, squareOf);
    ASSERT_NE(nullptr, made);
    EXPECT_EQ((std::vector<jlong>{base, base + 1, base + 4}), valuesOf(made));
}

TEST_F(JniArrays, ALongArrayWithoutASourceIsZeros) {
    jlongArray zeros = nativeToLongArray(env, nullptr, 3, squareOf);
    ASSERT_NE(nullptr, zeros);
    EXPECT_EQ((std::vector<jlong>{0, 0, 0}), valuesOf(zeros));
    const std::int64_t base = 1;
    jlongArray empty = nativeToLongArray(env, &base, 0, squareOf);
    ASSERT_NE(nullptr, empty);
    EXPECT_EQ(0, env->GetArrayLength(empty));
}

TEST_F(JniArrays, ValuesAreCopiedIntoTheBeginningOfALongArray) {
    jlongArray array = longs({1, 2, 3});
    const std::array<std::int64_t, 2> values = {-1, -2};
    EXPECT_EQ(NO_ERROR, setLongArrayRegion(env, array, 2, values.data()));
    EXPECT_EQ((std::vector<jlong>{-1, -2, 3}), valuesOf(array));
}

TEST_F(JniArrays, ANullOrShortTargetIsRefusedAndNothingIsCopied) {
    const std::array<std::int64_t, 2> values = {-1, -2};
    EXPECT_EQ(NULL_POINTER_ERROR, setLongArrayRegion(env, nullptr, 2, values.data()));
    jlongArray array = longs({1});
    EXPECT_EQ(JNI_ERROR, setLongArrayRegion(env, array, 2, values.data()));
    EXPECT_EQ((std::vector<jlong>{1}), valuesOf(array));
}

TEST_F(JniArrays, ARangeMustLieInItsArray) {
    jintArray array = ints({1, 2, 3});
    EXPECT_TRUE(isArrayRange(env, array, 0, 3));
    EXPECT_TRUE(isArrayRange(env, array, 3, 0));
    EXPECT_TRUE(isArrayRange(env, nullptr, -5, 7));
    EXPECT_FALSE(isArrayRange(env, array, 1, 3));
    EXPECT_FALSE(isArrayRange(env, array, -1, 1));
    EXPECT_FALSE(isArrayRange(env, array, 0, -1));
    EXPECT_FALSE(isArrayRange(env, array, 4, 0));
    EXPECT_FALSE(isArrayRange(env, array, std::numeric_limits<std::int32_t>::max(), 2));
}

}  // namespace
}  // namespace tabulo::internal::test
