// Captures every liblog line of the process and echoes it to stderr in logcat's brief format.

#include <android/log.h>
#include <hostcontrol/LogCapture.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace host {
namespace {

struct Capture {
    std::mutex lock;
    std::vector<LogLine> lines;
    std::atomic<bool> echo{true};
};

Capture& capture() {
    static Capture* c = new Capture;  // never destroyed: lines may be written during exit
    return *c;
}

char priorityLetter(int priority) {
    static const char kLetters[] = "??VDIWEFS";
    return (priority >= 0 && priority <= 8) ? kLetters[priority] : '?';
}

void captureLogger(const struct __android_logger_data* data, const char* message) {
    Capture& c = capture();
    const char* tag = data->tag != nullptr ? data->tag : "";
    {
        std::lock_guard<std::mutex> guard(c.lock);
        c.lines.push_back(LogLine{data->priority, tag, message != nullptr ? message : ""});
    }
    if (c.echo.load(std::memory_order_relaxed)) {
        fprintf(stderr, "%c/%s: %s\n", priorityLetter(data->priority), tag,
                message != nullptr ? message : "");
    }
}

void printingAborter(const char* message) {
    fprintf(stderr, "Abort message: '%s'\n", message != nullptr ? message : "");
    fflush(stderr);
    abort();
}

__attribute__((constructor)) void installLogCapture() {
    const char* echo = getenv("HOST_LOG_ECHO");
    if (echo != nullptr && strcmp(echo, "0") == 0) capture().echo = false;
    __android_log_set_logger(captureLogger);
    __android_log_set_aborter(printingAborter);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

}  // namespace

std::vector<LogLine> capturedLogs() {
    Capture& c = capture();
    std::lock_guard<std::mutex> guard(c.lock);
    return c.lines;
}

void clearCapturedLogs() {
    Capture& c = capture();
    std::lock_guard<std::mutex> guard(c.lock);
    c.lines.clear();
}

void setLogEcho(bool echo) {
    capture().echo = echo;
}

}  // namespace host
