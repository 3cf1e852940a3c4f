// A Java virtual machine inside the test program, run with -Xcheck:jni.
#pragma once

#include <gtest/gtest.h>
#include <jni.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace tabulo::internal::test {

// Tests that call Java. The virtual machine starts with the first test of a process and lives until its end; a test is
// skipped only where libjvm cannot be loaded. Whatever a test creates lives in a local frame of its own. A test fails
// when the virtual machine complains about a JNI call, or when it leaves an exception behind.
class WithJvm : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Whether what the virtual machine prints is kept from the test's output; it is judged all the same.
    static void keepQuiet(bool quiet);
    // A new object of a class that has a constructor without arguments.
    jobject make(const char* className);
    jstring javaText(std::u16string_view text);
    std::u16string nativeText(jobject text);
    // Calls `String take()` of a recording object; characters beyond ASCII are given as UTF-8.
    std::string take(jobject recorder);
    void setField(jobject object, const char* name, std::int32_t value);
    void setField(jobject object, const char* name, bool value);
    jobjectArray stringArray(jsize length);
    void throwPending(const char* className, const char* message);
    // Clears the pending exception and gives its class and message, as Throwable.toString does; empty when none is.
    std::string takeException();

    JNIEnv* env = nullptr;
    JavaVM* vm = nullptr;
};

}  // namespace tabulo::internal::test
