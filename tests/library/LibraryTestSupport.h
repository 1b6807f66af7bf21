/*
 * Helpers shared by the library's tests: the library's object and the captured log lines.
 */
#pragma once

#include <hostcontrol/LogCapture.h>
#include <hostproperties/HostProperties.h>

#include <algorithm>
#include <string>
#include <vector>

#include "surface/SurfaceNativeUtil.h"

namespace nuvra::test {

// The vendor of the library under test, in the binaries built once per vendor
// (NUVRA_TEST_VENDOR_<vendor>).
#if defined(NUVRA_TEST_VENDOR_QCOM)
inline constexpr bool kQcom = true;
#else
inline constexpr bool kQcom = false;
#endif
#if defined(NUVRA_TEST_VENDOR_KORB)
inline constexpr bool kKorb = true;
#else
inline constexpr bool kKorb = false;
#endif

inline constexpr const char* kSurfaceTag = "NuvraSurfaceUtil";
inline constexpr const char* kPlatformTag = "PlatformUtil";
inline constexpr const char* kJniHelpTag = "JNIHelp";

inline SurfaceNativeUtil* util() {
    return SurfaceNativeUtil_Get();
}

// Sets the log threshold property ("" clears it).
inline void setLogLevel(const std::string& value) {
    if (value.empty()) {
        host::clearProperty("log.tag.VANTORA_CAMERA");
    } else {
        host::setProperty("log.tag.VANTORA_CAMERA", value);
    }
}

// The texts written with `tag` at `priority` since the last clear, oldest first.
inline std::vector<std::string> logTexts(const std::string& tag, int priority) {
    std::vector<std::string> texts;
    for (const host::LogLine& line : host::capturedLogs()) {
        if (line.tag == tag && line.priority == priority) texts.push_back(line.text);
    }
    return texts;
}

// Every captured line as "P/tag: text", for comparing whole sequences.
inline std::vector<std::string> allLogLines() {
    std::vector<std::string> lines;
    for (const host::LogLine& line : host::capturedLogs()) {
        lines.push_back(std::to_string(line.priority) + "/" + line.tag + ": " + line.text);
    }
    return lines;
}

inline bool logged(const std::string& tag, int priority, const std::string& text) {
    const std::vector<std::string> texts = logTexts(tag, priority);
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

}  // namespace nuvra::test
