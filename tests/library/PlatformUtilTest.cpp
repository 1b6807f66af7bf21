// Vendor and YUV-order detection. The YUV order is computed once per process, so each case runs
// in a child process of its own.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/LogCapture.h>
#include <hostproperties/HostProperties.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/PlatformUtil.h"

namespace {

// The captured lines as "<priority> <tag>: <text>".
std::vector<std::string> logLines() {
    std::vector<std::string> lines;
    for (const host::LogLine& l : host::capturedLogs()) {
        lines.push_back(std::to_string(l.priority) + " " + l.tag + ": " + l.text);
    }
    return lines;
}

// In a child: sets "ro.board.platform" (nullptr: unset), asks twice, and exits with the answer
// when both agree and the answer was logged exactly once, else with 100.
[[noreturn]] void yuvOrderChild(const char* board) {
    host::setLogEcho(false);
    host::clearProperty("log.tag.VANTORA_CAMERA");
    if (board) {
        host::setProperty("ro.board.platform", board);
    } else {
        host::clearProperty("ro.board.platform");
    }
    host::clearCapturedLogs();
    YuvOrder first = PlatformUtil::getCurrentYuvOrder();
    // A later change of the property is not seen: the answer is cached.
    host::setProperty("ro.board.platform", first == YUV_ORDER_NV12 ? "unknown" : "kona");
    YuvOrder second = PlatformUtil::getCurrentYuvOrder();
    const std::string order = first == YUV_ORDER_NV12 ? "NV12" : "NV21";
    bool loggedOnce =
            logLines() == std::vector<std::string>{"3 PlatformUtil: Current YUV order is " + order};
    _exit(first == second && loggedOnce ? first : 100);
}

void expectYuvOrder(const char* board, int expected) {
    EXPECT_EXIT(yuvOrderChild(board), ::testing::ExitedWithCode(expected), "")
            << "board '" << (board ? board : "<unset>") << "'";
}

// The named Qualcomm boards are NV12, everything else (near misses, other vendors, unset) NV21.
TEST(PlatformUtilTest, YuvOrderFollowsTheBoard) {
    for (const char* board : {"msmnile", "kona", "lahaina", "sm6150", "lito", "atoll"}) {
        expectYuvOrder(board, YUV_ORDER_NV12);
    }
    for (const char* board :
         {"kona-v2", "Kona", "KONA", "kona ", " kona", "lahain", "sdm845", "taro", "mt6893", ""}) {
        expectYuvOrder(board, YUV_ORDER_NV21);
    }
    expectYuvOrder(nullptr, YUV_ORDER_NV21);
}

TEST(PlatformUtilTest, VendorIsTheBuildsAndLogsOnlyAtVerbose) {
    host::setLogEcho(false);
    host::clearCapturedLogs();
    host::clearProperty("log.tag.VANTORA_CAMERA");
    EXPECT_EQ(PlatformUtil::getCurrentVendor(), VENDOR_QCOM);
    EXPECT_TRUE(logLines().empty());
    host::setProperty("log.tag.VANTORA_CAMERA", "V");
    host::setProperty("ro.board.platform", "mt6893");  // not consulted
    EXPECT_EQ(PlatformUtil::getCurrentVendor(), VENDOR_QCOM);
    EXPECT_EQ(PlatformUtil::getCurrentVendor(), VENDOR_QCOM);
    EXPECT_EQ(logLines(), std::vector<std::string>(
                                  2, "2 PlatformUtil: getCurrentVendor: Current vendor is QCOM"));
    host::clearProperty("log.tag.VANTORA_CAMERA");
}

}  // namespace
