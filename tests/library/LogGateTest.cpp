// The per-unit log gate and the property reader behind it.

#include <android/log.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hostcontrol/LogCapture.h>

#include "LibraryTestSupport.h"
#include "surface/PropertyGet_Helper.h"
#include "testsupport/JniTest.h"

namespace nuvra::test {
namespace {

using LogGateTest = JniTest;

TEST_F(LogGateTest, ThresholdFollowsTheFirstCharacterOfTheProperty) {
    // The lowest priority each property value ("" = unset) lets through; 8 means nothing passes.
    const struct {
        const char* value;
        int threshold;
    } cases[] = {
            {"V", 2},        {"D", 3},       {"I", 4}, {"W", 5}, {"E", 6}, {"A", 7}, {"S", 8},
            {"Suppress", 8}, {"Verbose", 2}, {"v", 3}, {"e", 3}, {"x", 3}, {"", 3},
    };
    PropertyGet_Helper helper;
    ASSERT_NE(helper.propertyGet, nullptr);
    for (const auto& c : cases) {
        setLogLevel(c.value);
        for (int prio = ANDROID_LOG_VERBOSE; prio <= ANDROID_LOG_FATAL; ++prio) {
            EXPECT_EQ(propertyLogGatePasses(helper, prio), prio >= c.threshold)
                    << "property '" << c.value << "', priority " << prio;
        }
    }
}

// A reader that cannot be had logs why once and leaves the gate at its default (debug and up),
// whatever the property says; a missing symbol keeps the library's handle.
TEST_F(LogGateTest, ReaderThatCannotBeResolvedLeavesTheGateAtDebug) {
    const struct {
        const char* library;
        bool handle;
        const char* errorStart;
        const char* level;
    } cases[] = {
            {"libnuvra-not-loaded.so", false, "Cannot dlopen libnuvra-not-loaded.so: ", "V"},
            // The C library is loaded and never unloaded, so closing it twice is harmless here.
            {"libc.so.6", true, "Cannot resolve __system_property_get(): ", "S"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.library);
        host::clearCapturedLogs();
        setLogLevel(c.level);
        PropertyGet_Helper helper(c.library, RTLD_NOLOAD | RTLD_LAZY);
        EXPECT_EQ(helper.handle != nullptr, c.handle);
        EXPECT_EQ(helper.propertyGet, nullptr);
        std::vector<std::string> errors = logTexts("PropertyGet_Helper", ANDROID_LOG_ERROR);
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors[0].rfind(c.errorStart, 0), 0u) << errors[0];
        EXPECT_FALSE(propertyLogGatePasses(helper, ANDROID_LOG_VERBOSE));
        EXPECT_TRUE(propertyLogGatePasses(helper, ANDROID_LOG_DEBUG));
    }
}

}  // namespace
}  // namespace nuvra::test
