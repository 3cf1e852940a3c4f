#include "jni/jni_strings.h"

#include <string>
#include <vector>

#include "tests/java/jni/embedded_jvm.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t many = 5000;  // more than the virtual machine has local references to spare

class JniStrings : public WithJvm {
  protected:
    jstring javaOf(std::string_view text) {
        jstring made = nullptr;
        EXPECT_EQ(NO_ERROR, nativeToJavaString(env, text, &made));
        return made;
    }

    NativeText nativeOf(jstring text) {
        NativeText copy(new char[1]);
        EXPECT_EQ(NO_ERROR, javaStringToNative(env, text, &copy));
        return copy;
    }
};

TEST_F(JniStrings, ATextBecomesAJavaStringCharacterByCharacter) {
    EXPECT_EQ(u"a\u00E9\U0001F600\u00FF", nativeText(javaOf("a\xC3\xA9\xF0\x9F\x98\x80\xFF")));
    EXPECT_EQ(u"", nativeText(javaOf("")));
    const std::string zero("a\0b", 3);
    EXPECT_EQ(std::u16string(u"a\0b", 3), nativeText(javaOf(zero)));
    const std::u16string halves = {0xDC00, u'x', 0xD800};
    EXPECT_EQ(halves, nativeText(javaOf(nativeOf(javaText(halves)).get())));
}

TEST_F(JniStrings, AJavaStringBecomesItsModifiedUtf8) {
    EXPECT_STREQ("a\xC3\xA9\xC0\x80\xED\xA0\xBD\xED\xB8\x80", nativeOf(javaText({u"a\u00E9\0\U0001F600", 5})).get());
    EXPECT_STREQ("", nativeOf(javaText(u"")).get());
    EXPECT_EQ(nullptr, nativeOf(nullptr));
}

TEST_F(JniStrings, ATextWithoutMemoryForItIsToldFromNone) {
    jstring text = javaText(u"text");
    jstring made = text;
    NativeText copy(new char[1]);
    ErrorCode toJava = NO_ERROR;
    ErrorCode toNative = NO_ERROR;
    {
        const AllocationFailure failure = AllocationFailure::fromThenOn(1);
        toJava = nativeToJavaString(env, "longer than what a string holds in itself", &made);
        toNative = javaStringToNative(env, text, &copy);
    }
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, toJava);
    EXPECT_EQ(OUT_OF_MEMORY_ERROR, toNative);
    EXPECT_EQ(nullptr, made);
    EXPECT_EQ(nullptr, copy);
}

TEST_F(JniStrings, AStringArrayIsCopiedWithItsNullElements) {
    jobjectArray array = stringArray(3);
    env->SetObjectArrayElement(array, 0, javaText(u"first"));
    env->SetObjectArrayElement(array, 2, javaText(u"\u20AC"));
    std::vector<NativeText> list;
    ASSERT_EQ(NO_ERROR, stringArrayToNative(env, array, 3, &list));
    ASSERT_EQ(3U, list.size());
    EXPECT_STREQ("first", list[0].get());
    EXPECT_EQ(nullptr, list[1]);
    EXPECT_STREQ("\xE2\x82\xAC", list[2].get());
    ASSERT_EQ(NO_ERROR, stringArrayToNative(env, array, 1, &list));
    EXPECT_EQ(1U, list.size());
}

TEST_F(JniStrings, ACountBeyondTheArrayOrANullArrayIsAJniError) {
    std::vector<NativeText> list(2);
    EXPECT_EQ(JNI_ERROR, stringArrayToNative(env, stringArray(2), 3, &list));
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(JNI_ERROR, stringArrayToNative(env, nullptr, 0, &list));
}

TEST_F(JniStrings, ALongArrayTakesNoMoreLocalReferencesThanAShortOne) {
    jobjectArray array = stringArray(many);
    jstring element = javaText(u"element");
    for (jsize i = 0; i < many; ++i) {
        env->SetObjectArrayElement(array, i, element);
    }
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(4));
    std::vector<NativeText> list;
    EXPECT_EQ(NO_ERROR, stringArrayToNative(env, array, many, &list));
    std::size_t count = 0;
    EXPECT_EQ(NO_ERROR, forEachStringOfArray(env, array, &count, [](void* target, const char*) -> ErrorCode {
                  ++*static_cast<std::size_t*>(target);
                  return NO_ERROR;
              }));
    env->PopLocalFrame(nullptr);
    EXPECT_EQ(many, static_cast<std::int32_t>(count));
    EXPECT_STREQ("element", list.back().get());
}

const char* textOf(const void* source, std::int32_t index) {
    return static_cast<const char* const*>(source)[index];
}

TEST_F(JniStrings, ATextListBecomesAStringArray) {
    const char* texts[] = {"one", nullptr, "\xF0\x9F\x98\x80", ""};
    jobjectArray made = nativeToStringArray(env, 4, texts, textOf);
    ASSERT_NE(nullptr, made);
    ASSERT_EQ(4, env->GetArrayLength(made));
    EXPECT_TRUE(env->IsInstanceOf(made, env->FindClass("[Ljava/lang/String;")));
    EXPECT_EQ(u"one", nativeText(env->GetObjectArrayElement(made, 0)));
    EXPECT_EQ(nullptr, env->GetObjectArrayElement(made, 1));
    EXPECT_EQ(u"\U0001F600", nativeText(env->GetObjectArrayElement(made, 2)));
    EXPECT_EQ(u"", nativeText(env->GetObjectArrayElement(made, 3)));
}

TEST_F(JniStrings, AnEmptyAndAVeryLongTextListBecomeArraysToo) {
    jobjectArray empty = nativeToStringArray(env, 0, nullptr, textOf);
    ASSERT_NE(nullptr, empty);
    EXPECT_EQ(0, env->GetArrayLength(empty));
    const std::vector<const char*> texts(many, "x");
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(8));
    auto* made = static_cast<jobjectArray>(env->PopLocalFrame(nativeToStringArray(env, many, texts.data(), textOf)));
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(u"x", nativeText(env->GetObjectArrayElement(made, many - 1)));
}

TEST_F(JniStrings, AStringArrayThatCannotBeMadeLeavesTheExceptionPending) {
    EXPECT_EQ(nullptr, nativeToStringArray(env, -1, nullptr, textOf));
    EXPECT_EQ("java.lang.NegativeArraySizeException: -1", takeException());
}

struct Collected {
    std::vector<std::string> texts;
    std::size_t refuseAt = 0;
};

ErrorCode collect(void* target, const char* text) {
    auto* collected = static_cast<Collected*>(target);
    collected->texts.emplace_back(text);
    return collected->texts.size() == collected->refuseAt ? UNRECOVERABLE_ERROR : NO_ERROR;
}

TEST_F(JniStrings, EachStringIsHandedOnUntilOneIsRefused) {
    jobjectArray array = stringArray(3);
    env->SetObjectArrayElement(array, 0, javaText(u"a"));
    env->SetObjectArrayElement(array, 1, javaText(u"b"));
    env->SetObjectArrayElement(array, 2, javaText(u"c"));
    Collected all;
    EXPECT_EQ(NO_ERROR, forEachStringOfArray(env, array, &all, collect));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), all.texts);
    Collected two;
    two.refuseAt = 2;
    EXPECT_EQ(UNRECOVERABLE_ERROR, forEachStringOfArray(env, array, &two, collect));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), two.texts);
}

TEST_F(JniStrings, ANullArrayIsAnEmptyListAndANullElementANullPointer) {
    Collected collected;
    EXPECT_EQ(NO_ERROR, forEachStringOfArray(env, nullptr, &collected, collect));
    jobjectArray array = stringArray(2);
    env->SetObjectArrayElement(array, 0, javaText(u"a"));
    EXPECT_EQ(NULL_POINTER_ERROR, forEachStringOfArray(env, array, &collected, collect));
    EXPECT_EQ((std::vector<std::string>{"a"}), collected.texts);
}

}  // namespace
}  // namespace tabulo::internal::test
