/*
 * Capture of everything written through liblog in this process.
 *
 * libhostcontrol installs a logger into liblog when it is loaded, lowers liblog's own minimum
 * priority to verbose (the library gates its lines itself), and installs an aborter that prints
 * the abort message to stderr before aborting, so fatal assertions can be tested as deaths.
 * Every line is kept with its priority, tag and text. By default each line is also echoed to
 * stderr in logcat's brief format ("V/Tag: text"); HOST_LOG_ECHO=0 in the environment or
 * setLogEcho(false) turns that off.
 */
#pragma once

#include <string>
#include <vector>

namespace host {

struct LogLine {
    int priority;  // android_LogPriority: 2 verbose ... 7 fatal
    std::string tag;
    std::string text;
};

std::vector<LogLine> capturedLogs();
void clearCapturedLogs();
void setLogEcho(bool echo);

}  // namespace host
