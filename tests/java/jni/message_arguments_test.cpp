#include "jni/message_arguments.h"

#include <limits>
#include <string>
#include <vector>

#include "tests/java/jni/embedded_jvm.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

class MessageArguments : public WithJvm {
  protected:
    ErrorCode fromTypeMap(const std::vector<jint>& map, std::int32_t fieldCount) {
        jintArray types = env->NewIntArray(static_cast<jsize>(map.size()));
        env->SetIntArrayRegion(types, 0, static_cast<jsize>(map.size()), map.data());
        return numericSlots_fromTypeMap(env, types, env->NewLongArray(2), env->NewDoubleArray(2), fieldCount, &slots);
    }

    std::string msgTypeOf(std::u16string_view text, jchar character) {
        const MessageMetadata metadata =
            messageMetadata_fromJava(env, 1, 2, 3, 4, 5, character, javaText(text), JNI_FALSE, JNI_TRUE);
        EXPECT_EQ('\0', metadata.msgType[MSG_TYPE_LENGTH]);
        return metadata.msgType.data();
    }

    NumericSlots slots{};
};

TEST_F(MessageArguments, EntriesOfATypeMapAreCountedWithoutOverflow) {
    for (const std::int32_t entry : {lowest, lowest + 1, highest, 3, -3}) {
        EXPECT_EQ(INDEX_OUT_OF_BOUNDS_ERROR, fromTypeMap({1, entry}, 2)) << "entry " << entry;
    }
    EXPECT_EQ(NO_ERROR, fromTypeMap({2, -2, lowest}, 2)) << "entries behind the fields are not looked at";
}

TEST_F(MessageArguments, RangesOfBytesAreAddedWithoutOverflow) {
    jbyteArray bytes = env->NewByteArray(4);
    for (const ByteRange range : {ByteRange{bytes, highest, highest}, ByteRange{bytes, 1, highest},
                                  ByteRange{bytes, lowest, lowest}, ByteRange{bytes, highest, 1}}) {
        StringSlots strings = stringSlots_begin(env);
        EXPECT_EQ(JNI_ERROR, stringSlots_addBytes(&strings, &range, 1));
    }
    const ByteRange absent[] = {{nullptr, highest, highest}, {nullptr, lowest, lowest}};
    StringSlots strings = stringSlots_begin(env);
    EXPECT_EQ(NO_ERROR, stringSlots_addBytes(&strings, absent, 2));
    EXPECT_EQ(0, strings.fields[0].length);
}

TEST_F(MessageArguments, AMsgTypeThatFillsItsFieldEndsInItsNul) {
    EXPECT_EQ("UABCD", msgTypeOf(u"UABCD", u'D'));
    EXPECT_EQ("D", msgTypeOf(u"UABCDE", u'D'));
    EXPECT_EQ("", msgTypeOf(u"", u'D'));
    EXPECT_EQ("A", msgTypeOf(u"too long a type", u'\u0141'));
}

TEST_F(MessageArguments, SlotsPointAtTheirTextsHoweverLargeTheyGrew) {
    StringSlots strings = stringSlots_begin(env);
    const std::u16string large(2'000'000, u'x');
    ASSERT_EQ(NO_ERROR, stringSlots_addString(&strings, javaText(u"first")));
    ASSERT_EQ(NO_ERROR, stringSlots_addString(&strings, nullptr));
    ASSERT_EQ(NO_ERROR, stringSlots_addString(&strings, javaText(large)));
    ASSERT_EQ(NO_ERROR, stringSlots_addElements(&strings, nullptr, 2));
    ASSERT_EQ(NO_ERROR, stringSlots_addString(&strings, javaText(u"")));
    stringSlots_finish(&strings);
    ASSERT_EQ(6, strings.count);
    EXPECT_STREQ("first", strings.fields[0].text);
    EXPECT_EQ(6, strings.fields[0].length);
    EXPECT_EQ(nullptr, strings.fields[1].text);
    EXPECT_EQ(0, strings.fields[1].length);
    EXPECT_EQ(std::string(2'000'000, 'x'), strings.fields[2].text);
    EXPECT_EQ(nullptr, strings.fields[4].text);
    EXPECT_STREQ("", strings.fields[5].text);
    EXPECT_EQ(1, strings.fields[5].length);
}

TEST_F(MessageArguments, AFrameIsCopiedIntoTheSameMemoryAsTheOneBefore) {
    jbyteArray array = env->NewByteArray(3000);
    const std::vector<jbyte> filled(3000, 'f');
    env->SetByteArrayRegion(array, 0, 3000, filled.data());
    const char* bytes = nullptr;
    ASSERT_EQ(NO_ERROR, frameBytes_fromJava(env, {array, 0, 3000}, &bytes));
    for (const jint length : {2000, 3000, 0}) {
        const char* again = nullptr;
        ErrorCode code = NO_ERROR;
        bool allocated = false;
        {
            const AllocationFailure failure(1);
            code = frameBytes_fromJava(env, {array, 3000 - length, length}, &again);
            allocated = failure.happened();
        }
        EXPECT_EQ(NO_ERROR, code) << length;
        EXPECT_FALSE(allocated) << length;
        EXPECT_EQ(bytes, again);
        const auto size = static_cast<std::size_t>(length);
        EXPECT_EQ(std::string(size, 'f'), std::string(again, size));
    }
    EXPECT_EQ(NULL_POINTER_ERROR, frameBytes_fromJava(env, {nullptr, 0, 0}, &bytes));
    for (const ByteRange range : {ByteRange{array, highest, highest}, ByteRange{array, 1, 3000},
                                  ByteRange{array, -1, 1}, ByteRange{array, 0, -1}}) {
        EXPECT_EQ(JNI_ERROR, frameBytes_fromJava(env, range, &bytes));
    }
}

TEST_F(MessageArguments, ManyMessagesKeepNoLocalReferences) {
    jobjectArray texts = stringArray(12);
    for (jsize i = 0; i < 12; ++i) {
        env->SetObjectArrayElement(texts, i, javaText(u"value"));
    }
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(8));
    for (int i = 0; i < 1000; ++i) {
        StringSlots strings = stringSlots_begin(env);
        ASSERT_EQ(NO_ERROR, stringSlots_addElements(&strings, texts, 12));
    }
    env->PopLocalFrame(nullptr);
}

}  // namespace
}  // namespace tabulo::internal::test
