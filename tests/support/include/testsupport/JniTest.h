/*
 * GoogleTest support for tests that run against the host platform's JVM.
 *
 * Test binaries link nuvra_test_support instead of gtest_main. Its main() starts the JVM once
 * with -Xcheck:jni, turns the echo of log lines off, and fails any test during which the JVM
 * printed anything (a -Xcheck:jni report is a JNI misuse by the code under test).
 *
 * JniTest is the fixture base: it gives the test the main thread's JNIEnv, runs each test in
 * its own JNI local frame, and starts each test from a clean host platform (no armed faults, an
 * empty call record and log capture, the properties of HOST_PROPERTIES and the device profile
 * the process started with). A test that ends with a Java exception still pending fails.
 */
#pragma once

#include <gtest/gtest.h>
#include <jni.h>

#include <optional>
#include <string>

namespace nuvra::test {

// A Java exception taken off the thread.
struct JavaException {
    std::string className;  // as Class.getName() gives it: "java.lang.IllegalStateException"
    std::optional<std::string> message;  // empty when getMessage() returned null
};

// Takes the pending Java exception (clearing it); nullopt when none is pending.
std::optional<JavaException> takePendingException(JNIEnv* env);

// "className: message" (or the bare class name) for assertion messages.
std::string describe(const JavaException& exception);

// Takes the pending exception, which must read `expected` as describe() gives it ("" when none
// may be pending).
void expectPending(JNIEnv* env, const std::string& expected);

// The UTF-8 text of a Java string; nullopt for null.
std::optional<std::string> toStdString(JNIEnv* env, jstring string);

// Resets the host platform to the state the process started in (faults, call record, captured
// logs, plane layout override, properties, device profile). JniTest::SetUp calls it.
void resetHostPlatform();

class JniTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    JNIEnv* env = nullptr;

private:
    bool mFramePushed = false;
};

}  // namespace nuvra::test
