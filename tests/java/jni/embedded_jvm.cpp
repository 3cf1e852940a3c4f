#include "tests/java/jni/embedded_jvm.h"

#include <dlfcn.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "jni/jni_exception.h"

namespace {

bool virtualMachineRuns = false;

}  // namespace

// The search for leaks at the process's end breaks on the virtual machine's memory; without one it takes place.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
    return virtualMachineRuns ? 1 : 0;
}

namespace tabulo::internal::test {

namespace {

constexpr jint localFrame = 4096;

// What the virtual machine has printed, as far as it fits: no memory is asked for, which may be made to fail meanwhile.
struct Printed {
    std::array<char, 65536> text{};
    std::size_t length = 0;

    void add(const char* line) {
        for (; *line != '\0' && length + 1 < text.size(); ++line) {
            text[length++] = *line;
        }
    }

    std::string_view all() const { return {text.data(), length}; }
};

bool printing = true;

Printed& complaints() {
    static Printed printed;
    return printed;
}

// Takes all that the virtual machine itself prints.
__attribute__((format(printf, 2, 0))) jint takeOutput(std::FILE* stream, const char* format, std::va_list arguments) {
    std::array<char, 4096> line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    complaints().add(line.data());
    return printing ? std::fputs(line.data(), stream) : 0;
}

struct Jvm {
    JavaVM* vm = nullptr;
    JNIEnv* env = nullptr;
    bool missing = false;
    std::string problem;
};

Jvm startJvm() {
    Jvm jvm;
    void* library = ::dlopen(TABULO_LIBJVM, RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) {
        jvm.missing = true;
        jvm.problem = ::dlerror();
        return jvm;
    }
    using Create = jint(JavaVM**, void**, void*);
    virtualMachineRuns = true;
    auto* create = reinterpret_cast<Create*>(::dlsym(library, "JNI_CreateJavaVM"));
    std::string classPath = "-Djava.class.path=" TABULO_JNI_CLASSES;
    std::array<std::string, 8> texts = {"-Xcheck:jni",
                                        "-Xmx64m",
                                        "-Xshare:auto",
                                        "-XX:+UseSerialGC",
                                        "-XX:-UsePerfData",
                                        "-XX:TieredStopAtLevel=1",
                                        "-XX:-CreateCoredumpOnCrash",
                                        classPath};
    std::array<JavaVMOption, 9> options{};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        options[i].optionString = texts[i].data();
    }
    std::string hook = "vfprintf";
    options.back().optionString = hook.data();
    options.back().extraInfo = reinterpret_cast<void*>(takeOutput);
    JavaVMInitArgs arguments{};
    arguments.version = JNI_VERSION_1_8;
    arguments.nOptions = static_cast<jint>(options.size());
    arguments.options = options.data();
    void* env = nullptr;
    const jint result = create == nullptr ? JNI_ERR : create(&jvm.vm, &env, &arguments);
    jvm.env = static_cast<JNIEnv*>(env);
    if (result != JNI_OK) {
        jvm.problem = "JNI_CreateJavaVM answers " + std::to_string(result);
    } else if (!jniException_prepare(jvm.env)) {  // the virtual machine loads no library that would do it
        jvm.problem = "the library cannot be prepared";
    }
    return jvm;
}

const Jvm& theJvm() {
    static const Jvm jvm = startJvm();
    return jvm;
}

}  // namespace

void WithJvm::SetUp() {
    const Jvm& jvm = theJvm();
    if (jvm.missing) {
        GTEST_SKIP() << "no virtual machine can be loaded: " << jvm.problem;
    }
    ASSERT_EQ("", jvm.problem);
    env = jvm.env;
    vm = jvm.vm;
    complaints().length = 0;
    ASSERT_EQ(JNI_OK, env->PushLocalFrame(localFrame));
}

void WithJvm::keepQuiet(bool quiet) {
    printing = !quiet;
}

void WithJvm::TearDown() {
    if (env == nullptr) {
        return;
    }
    EXPECT_EQ("", takeException()) << "an exception is left behind";
    env->PopLocalFrame(nullptr);
    for (const char* sign : {"in native method", "exceeds capacity", "Calling other JNI functions"}) {
        EXPECT_EQ(std::string::npos, complaints().all().find(sign)) << "-Xcheck:jni complains: " << complaints().all();
    }
}

jobject WithJvm::make(const char* className) {
    jclass found = env->FindClass(className);
    if (found == nullptr) {
        ADD_FAILURE() << "there is no class " << className;
        return nullptr;
    }
    return env->NewObject(found, env->GetMethodID(found, "<init>", "()V"));
}

jstring WithJvm::javaText(std::u16string_view text) {
    return env->NewString(reinterpret_cast<const jchar*>(text.data()), static_cast<jsize>(text.size()));
}

std::u16string WithJvm::nativeText(jobject text) {
    if (text == nullptr) {
        ADD_FAILURE() << "a text is null";
        return {};
    }
    auto* string = static_cast<jstring>(text);
    std::u16string copy(static_cast<std::size_t>(env->GetStringLength(string)), u'\0');
    env->GetStringRegion(string, 0, env->GetStringLength(string), reinterpret_cast<jchar*>(copy.data()));
    return copy;
}

std::string WithJvm::take(jobject recorder) {
    const jmethodID method = env->GetMethodID(env->GetObjectClass(recorder), "take", "()Ljava/lang/String;");
    auto* text = static_cast<jstring>(env->CallObjectMethod(recorder, method));
    if (env->ExceptionCheck() == JNI_TRUE || text == nullptr) {
        return "(nothing)";
    }
    const char* bytes = env->GetStringUTFChars(text, nullptr);
    std::string copy = bytes;
    env->ReleaseStringUTFChars(text, bytes);
    return copy;
}

void WithJvm::setField(jobject object, const char* name, std::int32_t value) {
    env->SetIntField(object, env->GetFieldID(env->GetObjectClass(object), name, "I"), value);
}

void WithJvm::setField(jobject object, const char* name, bool value) {
    env->SetBooleanField(object, env->GetFieldID(env->GetObjectClass(object), name, "Z"), value ? JNI_TRUE : JNI_FALSE);
}

jobjectArray WithJvm::stringArray(jsize length) {
    return env->NewObjectArray(length, env->FindClass("java/lang/String"), nullptr);
}

void WithJvm::throwPending(const char* className, const char* message) {
    env->ThrowNew(env->FindClass(className), message);
}

std::string WithJvm::takeException() {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) {
        return "";
    }
    env->ExceptionClear();
    const jmethodID method = env->GetMethodID(env->GetObjectClass(pending), "toString", "()Ljava/lang/String;");
    auto* text = static_cast<jstring>(env->CallObjectMethod(pending, method));
    if (env->ExceptionCheck() == JNI_TRUE || text == nullptr) {
        env->ExceptionClear();
        return "(no text)";
    }
    const char* bytes = env->GetStringUTFChars(text, nullptr);
    std::string copy = bytes;
    env->ReleaseStringUTFChars(text, bytes);
    return copy;
}

}  // namespace tabulo::internal::test
