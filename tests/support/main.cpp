// main() of the test binaries that run against the JVM: starts it once with -Xcheck:jni and
// fails every test during which it printed anything.

#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <testsupport/JniTest.h>
#include <ui/HostGrallocGuard.h>

namespace {

// Fails the current test, or the environment's set-up, with whatever the JVM printed since the
// last call.
void failOnJvmOutput(const char* when) {
    std::vector<std::string> printed = host::jvmWarnings();
    host::clearJvmWarnings();
    std::string text;
    for (const std::string& line : printed) text += "\n  " + line;
    if (!printed.empty()) ADD_FAILURE() << "the JVM printed " << when << ":" << text;
}

class JvmEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        host::setLogEcho(false);
        host::JvmOptions options;
        options.checkJni = true;
        host::startJvm(options);
        failOnJvmOutput("while starting");
    }
};

// Fails the test that just ended when the JVM printed during it. OnTestEnd runs before the
// result printer's (end events go to listeners in reverse order), so the failure is reported
// with the test.
class JvmWarningListener : public ::testing::EmptyTestEventListener {
public:
    void OnTestEnd(const ::testing::TestInfo& /*info*/) override {
        failOnJvmOutput("during the test");
    }
};

}  // namespace

// Sanitizer settings for the JVM, built in so that a binary run by hand behaves as under ctest.
// The JVM takes SIGSEGV over for its own uses (implicit null checks, guard pages, safepoints) and
// hands the other faults on to AddressSanitizer. The allocations of the JVM and the JDK's native
// libraries that only the Java heap or generated code reference look leaked to the leak checker:
// they are not leaks of the code under test.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options() {
    return NUVRA_JVM_ASAN_OPTIONS;
}

extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions() {
    return "leak:libjvm.so\n"
           "leak:/usr/lib/jvm/*\n"
           "leak:libz.so.1\n"
           // PoCL and its compiler keep process-lifetime state (the GPU path's tests).
           "leak:libpocl.so\nleak:libLLVM-15.so\nleak:libclang-cpp.so\nleak:libhwloc.so\n";
}

// The suppressions are expected; listing them after every run is noise.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_options() {
    return "print_suppressions=0";
}

int main(int argc, char** argv) {
    // Every gralloc buffer ends against an inaccessible page: an overrun faults in the test.
    host::setGrallocGuardMode(true);
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new JvmEnvironment);
    ::testing::UnitTest::GetInstance()->listeners().Append(new JvmWarningListener);
    return RUN_ALL_TESTS();
}
