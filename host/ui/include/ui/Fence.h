/*
 * android::Fence: a reference-counted owner of a sync fence file descriptor. A fence signals
 * when its descriptor polls readable (a kernel sync file does when the work it guards is done;
 * the host also accepts any pollable descriptor such as an eventfd or a pipe's read end).
 * NO_FENCE holds no descriptor and is always signalled.
 */
#pragma once

#include <android-base/unique_fd.h>
#include <stdint.h>
#include <utils/Errors.h>
#include <utils/LightRefBase.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

namespace android {

class Fence : public LightRefBase<Fence> {
public:
    static const sp<Fence> NO_FENCE;
    static constexpr nsecs_t SIGNAL_TIME_PENDING = INT64_MAX;
    static constexpr nsecs_t SIGNAL_TIME_INVALID = -1;
    static inline bool isValidTimestamp(nsecs_t time) {
        return time != SIGNAL_TIME_PENDING && time != SIGNAL_TIME_INVALID;
    }

    // TIMEOUT_NEVER may be passed to the wait method to indicate that it should wait
    // indefinitely for the fence to signal.
    enum { TIMEOUT_NEVER = -1 };

    // Construct a new Fence object with an invalid file descriptor.
    Fence() = default;

    // Construct a new Fence object to manage a given fence file descriptor. When the new
    // Fence object is destructed the file descriptor will be closed.
    explicit Fence(int fenceFd);
    explicit Fence(base::unique_fd fenceFd);

    // Not copyable or movable.
    Fence(const Fence& rhs) = delete;
    Fence& operator=(const Fence& rhs) = delete;
    Fence(Fence&& rhs) = delete;
    Fence& operator=(Fence&& rhs) = delete;

    // Check whether the Fence has an open fence file descriptor. Most Fence methods treat an
    // invalid file descriptor just like a valid fence that is already signalled, so using
    // this is usually not necessary.
    bool isValid() const { return mFenceFd != -1; }

    // wait waits for up to timeout milliseconds for the fence to signal. If the fence signals
    // then NO_ERROR is returned. If the timeout expires before the fence signals then -ETIME
    // is returned. A timeout of TIMEOUT_NEVER may be used to indicate that the call should
    // wait indefinitely for the fence to signal.
    status_t wait(int timeout);

    // waitForever is a convenience function for waiting forever for a fence to signal (just
    // like wait(TIMEOUT_NEVER)), but issuing an error to the system log if it waits for more
    // than a few seconds. The logname argument should be a string identifying the caller.
    status_t waitForever(const char* logname);

    // Return a duplicate of the fence file descriptor. The caller is responsible for closing
    // the returned file descriptor. On error, -1 will be returned and errno will indicate the
    // problem.
    int dup() const;

    // Return the underlying file descriptor without giving up ownership. The returned file
    // descriptor is only valid for as long as the owning Fence object lives.
    int get() const { return mFenceFd.get(); }

    enum class Status {
        Invalid,     // Fence is invalid
        Unsignaled,  // Fence is valid but has not yet signaled
        Signaled,    // Fence is valid and has signaled
    };

    // Status of the fence without waiting for it.
    Status getStatus();

private:
    // Only allow instantiation using ref counting.
    friend class LightRefBase<Fence>;
    ~Fence() = default;

    base::unique_fd mFenceFd;
};

}  // namespace android
