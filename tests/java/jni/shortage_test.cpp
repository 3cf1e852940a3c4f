// The Java peers where native memory, Java's memory or the stack runs short: every use of the library, at every place.
// The scenarios and their judge are in Java (ShortageRun.java); this makes the allocations fail.
#include <optional>
#include <sstream>
#include <string>

#include "core/log.h"
#include "tests/java/jni/embedded_jvm.h"
#include "tests/java/jni/native_methods.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

std::optional<AllocationFailure> failure;

void JNICALL failAllocation(JNIEnv*, jclass, jlong n, jboolean goesOn) {
    failure.emplace(n, goesOn != JNI_FALSE);
}

jboolean JNICALL endFailures(JNIEnv*, jclass) {
    const bool happened = failure->happened();
    failure.reset();
    return happened ? JNI_TRUE : JNI_FALSE;
}

class Shortage : public WithJvm {
  protected:
    void SetUp() override {
        WithJvm::SetUp();
        if (env == nullptr) {
            return;
        }
        log_setDebugStream(nullptr);
        log_setFacility(nullptr);
        ASSERT_TRUE(nativeMethods_register(env));
        std::string fail = "failAllocation";
        std::string failSignature = "(JZ)V";
        std::string end = "endFailures";
        std::string endSignature = "()Z";
        const JNINativeMethod methods[] = {{fail.data(), failSignature.data(), reinterpret_cast<void*>(failAllocation)},
                                           {end.data(), endSignature.data(), reinterpret_cast<void*>(endFailures)}};
        run = env->FindClass("ShortageRun");
        ASSERT_NE(nullptr, run);
        ASSERT_EQ(JNI_OK, env->RegisterNatives(run, methods, 2));
    }

    void expectNothingIsLostWithout(const char* what) {
        const TemporaryDirectory directory;
        const jmethodID method =
            env->GetStaticMethodID(run, "run", "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;");
        ASSERT_NE(nullptr, method);
        keepQuiet(true);  // thousands of exceptions on purpose
        jobject report = env->CallStaticObjectMethod(run, method, env->NewStringUTF(directory.root().c_str()),
                                                     env->NewStringUTF(what));
        keepQuiet(false);
        ASSERT_EQ("", takeException());
        const std::u16string text = nativeText(report);
        std::istringstream lines(std::string(text.begin(), text.end()));  // what is not ASCII is of no interest
        int points = 0;
        int runs = 0;
        lines >> points >> runs;
        std::string problems;
        std::getline(lines, problems);
        std::getline(lines, problems, '\0');
        EXPECT_EQ("", problems);
        EXPECT_GT(points, 0) << "nothing ran short";
        reportFigure("Java shortage", std::string("uses without ") + what, runs);
        reportFigure("Java shortage", std::string("uses without ") + what + " that fail for it", points);
    }

    jclass run = nullptr;
};

TEST_F(Shortage, WithoutNativeMemoryEveryUseEndsAsWithItOrWithAnException) {
    expectNothingIsLostWithout("native memory");
}

TEST_F(Shortage, WithoutJavasMemoryEveryUseEndsAsWithItOrWithAnException) {
    expectNothingIsLostWithout("heap");
}

TEST_F(Shortage, WithoutJavasMemoryForLargeArraysEveryUseEndsAsWithItOrWithAnException) {
    expectNothingIsLostWithout("heap for large texts");
}

TEST_F(Shortage, WithoutStackEveryUseEndsAsWithItOrWithAnException) {
    expectNothingIsLostWithout("stack");
}

}  // namespace
}  // namespace tabulo::internal::test
