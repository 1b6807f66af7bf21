// The in-process JVM: which VM runs, how it was started, threads, and the -Xcheck:jni detector.

#include <android_runtime/AndroidRuntime.h>
#include <hostjvm/Jvm.h>
#include <testsupport/JniTest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <thread>

namespace {

using nuvra::test::JniTest;
using nuvra::test::toStdString;

std::string systemProperty(JNIEnv* env, const char* name) {
    jclass system = env->FindClass("java/lang/System");
    jmethodID getProperty =
            env->GetStaticMethodID(system, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;");
    jstring key = env->NewStringUTF(name);
    auto value = static_cast<jstring>(env->CallStaticObjectMethod(system, getProperty, key));
    EXPECT_FALSE(env->ExceptionCheck());
    return toStdString(env, value).value_or("<null>");  // the test's local frame frees the refs
}

class JvmHarnessTest : public JniTest {};

TEST_F(JvmHarnessTest, RunsOneOpenJdk17WithCheckedJniThePlatformJarAndAnEnvPerThread) {
    // "17", "17.0.15", ...: the major version of the running VM.
    std::string version = systemProperty(env, "java.version");
    EXPECT_TRUE(version == "17" || version.rfind("17.", 0) == 0) << version;
    EXPECT_EQ(systemProperty(env, "java.class.path").rfind(host::platformJarPath(), 0), 0u);
    EXPECT_EQ(systemProperty(env, "java.library.path"), host::platformLibraryPath());

    std::vector<std::string> options = host::jvmOptionStrings();
    EXPECT_NE(std::find(options.begin(), options.end(), "-Xcheck:jni"), options.end());

    // The platform's classes load from the jar and their natives are registered: a native
    // method without a registration would throw UnsatisfiedLinkError when called.
    jclass surface = env->FindClass("android/view/Surface");
    ASSERT_NE(surface, nullptr);
    jmethodID nativeIsValid = env->GetStaticMethodID(surface, "nativeIsValid", "(J)Z");
    ASSERT_NE(nativeIsValid, nullptr);
    EXPECT_FALSE(env->CallStaticBooleanMethod(surface, nativeIsValid, jlong{0}));
    EXPECT_FALSE(env->ExceptionCheck());

    // One VM for the process, an env per thread.
    JavaVM* vm = host::javaVm();
    ASSERT_NE(vm, nullptr);
    EXPECT_EQ(host::startJvm(), env);  // started already: the same thread's env
    EXPECT_EQ(android::AndroidRuntime::getJavaVM(), vm);
    EXPECT_EQ(android::AndroidRuntime::getJNIEnv(), env);

    JNIEnv* threadEnv = nullptr;
    bool attachedBefore = true, foundClass = false;
    std::thread worker([&] {
        attachedBefore = android::AndroidRuntime::getJNIEnv() != nullptr;
        threadEnv = host::jniEnv();
        // An attached native thread sees the application class path.
        jclass found = threadEnv->FindClass("android/view/Surface");
        foundClass = found != nullptr;
        threadEnv->DeleteLocalRef(found);
        EXPECT_EQ(host::jniEnv(), threadEnv);  // attached once
    });
    worker.join();
    EXPECT_FALSE(attachedBefore);
    EXPECT_NE(threadEnv, nullptr);
    EXPECT_NE(threadEnv, env);
    EXPECT_TRUE(foundClass);
}

// Tests that must fail: the self-check below runs them in a child process. They are disabled so
// that a normal run skips them.
TEST_F(JvmHarnessTest, DISABLED_FailsOnJvmReport) {
    jclass string = env->FindClass("java/lang/String");
    jmethodID length = env->GetMethodID(string, "length", "()I");
    jstring text = env->NewStringUTF("abc");
    env->CallIntMethod(text, length);
    env->DeleteLocalRef(env->GetObjectClass(text));  // unchecked exception: reported
}

TEST_F(JvmHarnessTest, DISABLED_FailsOnPendingException) {
    env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), "left behind");
}

TEST_F(JvmHarnessTest, DISABLED_FailsOnPendingExceptionWithoutMessage) {
    jclass npe = env->FindClass("java/lang/NullPointerException");
    env->Throw(
            static_cast<jthrowable>(env->NewObject(npe, env->GetMethodID(npe, "<init>", "()V"))));
}

TEST(JvmHarnessSelfCheck, TheDetectorsFailTheTestsThatMisuseJni) {
    std::string command = "/proc/" + std::to_string(getpid()) +
                          "/exe --gtest_also_run_disabled_tests --gtest_color=no"
                          " --gtest_filter='JvmHarnessTest.DISABLED_FailsOn*' 2>&1";
    FILE* child = popen(command.c_str(), "r");
    ASSERT_NE(child, nullptr);
    std::string output;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), child)) > 0;) output.append(buffer, n);
    int status = pclose(child);
    EXPECT_NE(status, 0) << output;
    EXPECT_NE(output.find("[  FAILED  ] JvmHarnessTest.DISABLED_FailsOnJvmReport"),
              std::string::npos)
            << output;
    EXPECT_NE(output.find("the JVM printed during the test"), std::string::npos) << output;
    EXPECT_NE(output.find("WARNING in native method: JNI call made without checking exceptions"),
              std::string::npos)
            << output;
    EXPECT_NE(output.find("[  FAILED  ] JvmHarnessTest.DISABLED_FailsOnPendingException"),
              std::string::npos)
            << output;
    EXPECT_NE(output.find("pending Java exception: java.lang.IllegalStateException: left behind"),
              std::string::npos)
            << output;
    // The exception is taken with its class, and its message when it has one.
    EXPECT_NE(output.find("pending Java exception: java.lang.NullPointerException\n"),
              std::string::npos)
            << output;
}

}  // namespace
