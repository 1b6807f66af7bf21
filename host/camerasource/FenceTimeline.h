// Acquire fences that signal later: eventfds that a timer thread signals at their deadline.
#pragma once

#include <hostcamera/CameraSource.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace host {

class CameraSource::FenceTimeline {
public:
    FenceTimeline();
    // Signals every pending fence and stops the thread.
    ~FenceTimeline();

    // A new fence descriptor (owned by the caller) that polls readable `delayUs` from now; -1
    // when no eventfd can be made.
    int createFence(int64_t delayUs);
    void signalAll();

private:
    void run();

    std::mutex mMutex;
    std::condition_variable mWake;
    // Deadline -> the timeline's own descriptor of the fence.
    std::multimap<std::chrono::steady_clock::time_point, int> mPending;
    bool mStopping = false;
    std::thread mThread;
};

}  // namespace host
