// The order of the library's load-time work: each source unit opens its property reader while its
// static initialisers run, and the main unit's SurfaceNativeUtilImpl logs its construction. The
// test loads the library itself, with dlopen interposed (this executable's definition comes first
// in the global scope) to mark where each unit opened its reader among the captured log lines.

#include <android/log.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hostcontrol/LogCapture.h>
#include <hostproperties/HostProperties.h>

#include <cstring>
#include <string>
#include <vector>

#include "surface/PropertyGet_Helper.h"
#include "surface/SurfaceNativeUtil.h"
#include "testsupport/JniTest.h"

namespace {

bool gRecording = false;
std::vector<std::string> gEvents;  // log lines and reader openings, in the order they happened

void recordLogsSoFar(size_t* seen) {
    std::vector<host::LogLine> lines = host::capturedLogs();
    for (; *seen < lines.size(); ++*seen) {
        if (lines[*seen].tag == "NuvraSurfaceUtil") gEvents.push_back(lines[*seen].text);
    }
}

size_t gLogsSeen = 0;

}  // namespace

extern "C" void* dlopen(const char* file, int mode) {
    using DlopenFn = void* (*)(const char*, int);
    static const auto next = reinterpret_cast<DlopenFn>(dlsym(RTLD_NEXT, "dlopen"));
    if (gRecording && file != nullptr && strcmp(file, PROPERTY_LIBRARY_NAME) == 0 &&
        (mode & RTLD_NOLOAD) != 0) {
        recordLogsSoFar(&gLogsSeen);
        gEvents.push_back("property reader opened");
    }
    return next(file, mode);
}

namespace nuvra::test {
namespace {

using LoadOrderTest = JniTest;

TEST_F(LoadOrderTest, MainUnitIsInitialisedBeforePlatformUtil) {
    host::setProperty("log.tag.VANTORA_CAMERA", "V");
    host::clearCapturedLogs();
    gEvents.clear();
    gLogsSeen = 0;
    gRecording = true;
    void* library = dlopen(NUVRA_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    recordLogsSoFar(&gLogsSeen);
    gRecording = false;
    ASSERT_NE(library, nullptr) << dlerror();

    // SurfaceNativeUtilImpl: its reader, then the object; then the readers of PlatformUtil,
    // qcom/FormatConverter and clWrapper.
    const std::vector<std::string> expected = {
            "property reader opened", "SurfaceNativeUtil created.", "property reader opened",
            "property reader opened", "property reader opened"};
    EXPECT_EQ(expected, gEvents);

    auto get = reinterpret_cast<SurfaceNativeUtil* (*)()>(dlsym(library, "SurfaceNativeUtil_Get"));
    ASSERT_NE(get, nullptr);
    EXPECT_NE(get(), nullptr);
    host::clearCapturedLogs();
    EXPECT_EQ(dlclose(library), 0);
    std::vector<std::string> unloadLines;
    for (const host::LogLine& line : host::capturedLogs()) {
        if (line.tag == "NuvraSurfaceUtil") unloadLines.push_back(line.text);
    }
    EXPECT_EQ(std::vector<std::string>{"SurfaceNativeUtil destroyed."}, unloadLines);
}

}  // namespace
}  // namespace nuvra::test
