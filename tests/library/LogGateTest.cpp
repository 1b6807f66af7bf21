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

class LogGateTest : public JniTest {};

// The lowest priority each property value lets through; 8 means nothing passes.
struct GateCase {
    const char* value;  // "" = unset
    int threshold;
};

TEST_F(LogGateTest, ThresholdFollowsTheFirstCharacterOfTheProperty) {
    const GateCase cases[] = {
            {"V", 2},        {"D", 3},       {"I", 4}, {"W", 5}, {"E", 6}, {"A", 7}, {"S", 8},
            {"Suppress", 8}, {"Verbose", 2}, {"v", 3}, {"e", 3}, {"x", 3}, {"", 3},
    };
    PropertyGet_Helper helper;
    ASSERT_NE(helper.propertyGet, nullptr);
    for (const GateCase& c : cases) {
        setLogLevel(c.value);
        for (int prio = ANDROID_LOG_VERBOSE; prio <= ANDROID_LOG_FATAL; ++prio) {
            EXPECT_EQ(propertyLogGatePasses(helper, prio), prio >= c.threshold)
                    << "property '" << c.value << "', priority " << prio;
        }
    }
}

TEST_F(LogGateTest, PropertyIsReadAnewForEveryLine) {
    PropertyGet_Helper helper;
    setLogLevel("V");
    EXPECT_TRUE(propertyLogGatePasses(helper, ANDROID_LOG_VERBOSE));
    setLogLevel("E");
    EXPECT_FALSE(propertyLogGatePasses(helper, ANDROID_LOG_WARN));
    setLogLevel("");
    EXPECT_TRUE(propertyLogGatePasses(helper, ANDROID_LOG_DEBUG));
    EXPECT_FALSE(propertyLogGatePasses(helper, ANDROID_LOG_VERBOSE));
}

TEST_F(LogGateTest, ReaderResolvesFromTheLoadedPropertyLibraryWithoutErrors) {
    PropertyGet_Helper helper;
    EXPECT_NE(helper.handle, nullptr);
    EXPECT_NE(helper.propertyGet, nullptr);
    EXPECT_TRUE(logTexts("PropertyGet_Helper", ANDROID_LOG_ERROR).empty());
}

TEST_F(LogGateTest, LibraryThatIsNotLoadedLeavesTheGateAtDebug) {
    setLogLevel("V");
    PropertyGet_Helper helper("libnuvra-not-loaded.so", RTLD_NOLOAD | RTLD_LAZY);
    EXPECT_EQ(helper.handle, nullptr);
    EXPECT_EQ(helper.propertyGet, nullptr);
    std::vector<std::string> errors = logTexts("PropertyGet_Helper", ANDROID_LOG_ERROR);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind("Cannot dlopen libnuvra-not-loaded.so: ", 0), 0u) << errors[0];
    // The property says verbose, but without a reader the default threshold applies.
    EXPECT_FALSE(propertyLogGatePasses(helper, ANDROID_LOG_VERBOSE));
    EXPECT_TRUE(propertyLogGatePasses(helper, ANDROID_LOG_DEBUG));
}

TEST_F(LogGateTest, MissingSymbolKeepsTheHandleAndLeavesTheGateAtDebug) {
    setLogLevel("S");
    // The C library is loaded and never unloaded, so closing it twice is harmless here.
    PropertyGet_Helper helper("libc.so.6", RTLD_NOLOAD | RTLD_LAZY);
    EXPECT_NE(helper.handle, nullptr);
    EXPECT_EQ(helper.propertyGet, nullptr);
    std::vector<std::string> errors = logTexts("PropertyGet_Helper", ANDROID_LOG_ERROR);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind("Cannot resolve __system_property_get(): ", 0), 0u) << errors[0];
    EXPECT_TRUE(propertyLogGatePasses(helper, ANDROID_LOG_DEBUG));
    EXPECT_FALSE(propertyLogGatePasses(helper, ANDROID_LOG_VERBOSE));
}

}  // namespace
}  // namespace nuvra::test
