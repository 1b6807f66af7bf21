// Vendor and YUV-order detection. The YUV order is computed once per process, so each case runs
// in a child process of its own.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/LogCapture.h>
#include <hostproperties/HostProperties.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "platform/PlatformUtil.h"

namespace {

int countLines(const char* tag, int priority, const std::string& text) {
    int n = 0;
    for (const host::LogLine& line : host::capturedLogs()) {
        if (line.tag == tag && line.priority == priority && line.text == text) ++n;
    }
    return n;
}

// In a child: sets "ro.board.platform" (nullopt: unset), asks twice, and exits with the answer
// when both agree and the answer was logged exactly once, else with 100.
[[noreturn]] void yuvOrderChild(const std::optional<std::string>& board) {
    host::setLogEcho(false);
    host::clearProperty("log.tag.VANTORA_CAMERA");
    if (board) {
        host::setProperty("ro.board.platform", *board);
    } else {
        host::clearProperty("ro.board.platform");
    }
    host::clearCapturedLogs();
    YuvOrder first = PlatformUtil::getCurrentYuvOrder();
    // A later change of the property is not seen: the answer is cached.
    host::setProperty("ro.board.platform", first == YUV_ORDER_NV12 ? "unknown" : "kona");
    YuvOrder second = PlatformUtil::getCurrentYuvOrder();
    const char* expected =
            first == YUV_ORDER_NV12 ? "Current YUV order is NV12" : "Current YUV order is NV21";
    bool loggedOnce = countLines("PlatformUtil", ANDROID_LOG_DEBUG, expected) == 1 &&
                      host::capturedLogs().size() == 1;
    _exit(first == second && loggedOnce ? first : 100);
}

void expectYuvOrder(const std::optional<std::string>& board, int expected) {
    EXPECT_EXIT(yuvOrderChild(board), ::testing::ExitedWithCode(expected), "")
            << "board '" << board.value_or("<unset>") << "'";
}

// The named Qualcomm boards are NV12, everything else (near misses, other vendors, unset) NV21.
TEST(PlatformUtilTest, YuvOrderFollowsTheBoard) {
    for (const char* board : {"msmnile", "kona", "lahaina", "sm6150", "lito", "atoll"}) {
        expectYuvOrder(std::string(board), YUV_ORDER_NV12);
    }
    for (const char* board :
         {"kona-v2", "Kona", "KONA", "kona ", " kona", "lahain", "sdm845", "taro", "mt6893", ""}) {
        expectYuvOrder(std::string(board), YUV_ORDER_NV21);
    }
    expectYuvOrder(std::nullopt, YUV_ORDER_NV21);
}

TEST(PlatformUtilTest, VendorIsTheBuildsAndLogsOnlyAtVerbose) {
    host::setLogEcho(false);
    host::clearCapturedLogs();
    host::clearProperty("log.tag.VANTORA_CAMERA");
    EXPECT_EQ(PlatformUtil::getCurrentVendor(), VENDOR_QCOM);
    EXPECT_EQ(countLines("PlatformUtil", ANDROID_LOG_VERBOSE,
                         "getCurrentVendor: Current vendor is QCOM"),
              0);
    host::setProperty("log.tag.VANTORA_CAMERA", "V");
    host::setProperty("ro.board.platform", "mt6893");  // not consulted
    EXPECT_EQ(PlatformUtil::getCurrentVendor(), VENDOR_QCOM);
    EXPECT_EQ(PlatformUtil::getCurrentVendor(), VENDOR_QCOM);
    EXPECT_EQ(countLines("PlatformUtil", ANDROID_LOG_VERBOSE,
                         "getCurrentVendor: Current vendor is QCOM"),
              2);
    host::clearProperty("log.tag.VANTORA_CAMERA");
}

}  // namespace
