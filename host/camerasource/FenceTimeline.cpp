// The camera source's acquire fences and the thread that signals them.

#include "FenceTimeline.h"

#include <fcntl.h>
#include <log/log.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#undef LOG_TAG
#define LOG_TAG "HostCamera"

namespace host {
namespace {

void signalAndClose(int fd) {
    const uint64_t one = 1;
    if (write(fd, &one, sizeof(one)) != static_cast<ssize_t>(sizeof(one))) {
        ALOGE("could not signal fence %d", fd);
    }
    close(fd);
}

}  // namespace

CameraSource::FenceTimeline::FenceTimeline() : mThread([this] { run(); }) {}

CameraSource::FenceTimeline::~FenceTimeline() {
    {
        std::lock_guard<std::mutex> guard(mMutex);
        mStopping = true;
    }
    mWake.notify_all();
    mThread.join();
}

int CameraSource::FenceTimeline::createFence(int64_t delayUs) {
    const int own = eventfd(0, EFD_CLOEXEC);
    if (own < 0) return -1;
    const int handedOut = fcntl(own, F_DUPFD_CLOEXEC, 0);
    if (handedOut < 0) {
        close(own);
        return -1;
    }
    {
        std::lock_guard<std::mutex> guard(mMutex);
        mPending.emplace(std::chrono::steady_clock::now() + std::chrono::microseconds(delayUs),
                         own);
    }
    mWake.notify_all();
    return handedOut;
}

void CameraSource::FenceTimeline::signalAll() {
    std::lock_guard<std::mutex> guard(mMutex);
    for (const auto& [deadline, fd] : mPending) signalAndClose(fd);
    mPending.clear();
}

void CameraSource::FenceTimeline::run() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        if (mPending.empty()) {
            mWake.wait(lock);
            continue;
        }
        auto first = mPending.begin();
        if (std::chrono::steady_clock::now() < first->first) {
            mWake.wait_until(lock, first->first);
            continue;
        }
        signalAndClose(first->second);
        mPending.erase(first);
    }
    for (const auto& [deadline, fd] : mPending) signalAndClose(fd);
    mPending.clear();
}

}  // namespace host
