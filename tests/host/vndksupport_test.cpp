// android_load_sphal_library: the default namespace, a confined search path, faults.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>
#include <hostcontrol/LogCapture.h>
#include <hostvndksupport/SphalNamespace.h>
#include <vndksupport/linker.h>

#include <cstdlib>

namespace {

class SphalNamespaceTest : public ::testing::Test {
protected:
    // No search path to restore: nothing else in this binary loads from the namespace.
    void SetUp() override {
        host::setLogEcho(false);
        host::clearCapturedLogs();
        host::resetFaultsAndCalls();
        host::setSphalSearchPath({});
    }

    // The failure lines, each checked against the platform's error line for `name`.
    static size_t failures(const char* name) {
        size_t count = 0;
        const std::string prefix =
                std::string("Could not load ") + name + " from sphal namespace: ";
        for (const host::LogLine& line : host::capturedLogs()) {
            if (line.tag != "vndksupport") continue;
            ++count;
            EXPECT_EQ(line.priority, 6) << line.text;
            EXPECT_EQ(line.text.rfind(prefix, 0), 0u) << line.text;
            EXPECT_GT(line.text.size(), prefix.size() + 1) << "no loader message: " << line.text;
            EXPECT_EQ(line.text.back(), '.') << line.text;
        }
        return count;
    }
};

TEST_F(SphalNamespaceTest, WithoutDirectoriesTheNormalSearchPathIsUsed) {
    void* libc = android_load_sphal_library("libc.so.6", RTLD_NOW);
    ASSERT_NE(libc, nullptr);
    EXPECT_NE(dlsym(libc, "malloc"), nullptr);
    EXPECT_EQ(android_unload_sphal_library(libc), 0);

    // The probe is not on the normal search path.
    EXPECT_EQ(android_load_sphal_library("libsphal_probe.so", RTLD_NOW), nullptr);
    EXPECT_EQ(failures("libsphal_probe.so"), 1u);
    EXPECT_EQ(dlerror(), nullptr);  // the error line took the loader's message
    EXPECT_EQ(android_is_in_vendor_process(), 0);
}

TEST_F(SphalNamespaceTest, ConfinedDirectoriesAreSearchedInOrderAndOnly) {
    host::setSphalSearchPath({"/nonexistent-sphal-dir", SPHAL_PROBE_DIR});
    void* probe = android_load_sphal_library("libsphal_probe.so", RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(probe, nullptr);
    auto answer = reinterpret_cast<int (*)()>(dlsym(probe, "sphal_probe_answer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(android_unload_sphal_library(probe), 0);
    EXPECT_EQ(failures("libsphal_probe.so"), 0u);

    // An armed fault loads nothing, without a line; the call is recorded.
    host::injectFault("vndksupport.android_load_sphal_library", -1);
    EXPECT_EQ(android_load_sphal_library("libsphal_probe.so", RTLD_NOW), nullptr);
    EXPECT_EQ(failures("libsphal_probe.so"), 0u);
    EXPECT_EQ(host::callCount("vndksupport.android_load_sphal_library"), 2u);

    // libc is not in the namespace's directories, so the namespace does not find it...
    EXPECT_EQ(android_load_sphal_library("libc.so.6", RTLD_NOW), nullptr);
    EXPECT_EQ(failures("libc.so.6"), 1u);
    // ...while a path names the library directly.
    std::string path = std::string(SPHAL_PROBE_DIR) + "/libsphal_probe.so";
    host::setSphalSearchPath({"/nonexistent-sphal-dir"});
    probe = android_load_sphal_library(path.c_str(), RTLD_NOW);
    ASSERT_NE(probe, nullptr);
    EXPECT_EQ(android_unload_sphal_library(probe), 0);
}

}  // namespace
