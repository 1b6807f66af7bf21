// The order of the library's load-time work: each source unit opens its property reader while its
// static initialisers run, and the main unit's SurfaceNativeUtilImpl logs its construction. The
// test loads the library itself, with dlopen interposed (this executable's definition comes first
// in the global scope) to mark where each unit opened its reader among the captured log lines.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>

#include "LibraryTestSupport.h"
#include "surface/PropertyGet_Helper.h"
#include "testsupport/JniTest.h"

namespace {

bool gRecording = false;
std::vector<std::string> gEvents;  // log lines and reader openings, in the order they happened
size_t gLogsSeen = 0;

// Adds the library's lines captured since the last call to the events.
void recordLogsSoFar() {
    std::vector<host::LogLine> lines = host::capturedLogs();
    for (; gLogsSeen < lines.size(); ++gLogsSeen) {
        if (lines[gLogsSeen].tag == "NuvraSurfaceUtil") gEvents.push_back(lines[gLogsSeen].text);
    }
}

}  // namespace

extern "C" void* dlopen(const char* file, int mode) {
    using DlopenFn = void* (*)(const char*, int);
    static const auto next = reinterpret_cast<DlopenFn>(dlsym(RTLD_NEXT, "dlopen"));
    if (gRecording && file != nullptr && strcmp(file, PROPERTY_LIBRARY_NAME) == 0 &&
        (mode & RTLD_NOLOAD) != 0) {
        recordLogsSoFar();
        gEvents.push_back("property reader opened");
    }
    return next(file, mode);
}

namespace nuvra::test {
namespace {

using LoadOrderTest = JniTest;

TEST_F(LoadOrderTest, MainUnitIsInitialisedBeforePlatformUtil) {
    setLogLevel("V");
    host::clearCapturedLogs();
    gEvents.clear();
    gLogsSeen = 0;
    gRecording = true;
    void* library = dlopen(NUVRA_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    recordLogsSoFar();
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
    EXPECT_EQ(allLogLines(),
              std::vector<std::string>{"2/NuvraSurfaceUtil: SurfaceNativeUtil destroyed."});
}

}  // namespace
}  // namespace nuvra::test
