// Sync fences: a descriptor that polls readable once the work it guards is done.

#include <errno.h>
#include <log/log.h>
#include <poll.h>
#include <ui/Fence.h>
#include <unistd.h>
#include <utils/Timers.h>

namespace android {

const sp<Fence> Fence::NO_FENCE = sp<Fence>(new Fence);

namespace {

// Waits like libsync's sync_wait: 0 once the descriptor polls readable, -1 with errno ETIME
// when the timeout (milliseconds, negative: forever) passes first, -1 with errno EINVAL for a
// descriptor that reports an error instead.
int syncWait(int fd, int timeoutMs) {
    struct pollfd fds = {fd, POLLIN, 0};
    for (;;) {
        int ret = poll(&fds, 1, timeoutMs);
        if (ret > 0) {
            if (fds.revents & (POLLERR | POLLNVAL)) {
                errno = EINVAL;
                return -1;
            }
            return 0;
        }
        if (ret == 0) {
            errno = ETIME;
            return -1;
        }
        if (errno != EINTR && errno != EAGAIN) return -1;
    }
}

}  // namespace

Fence::Fence(int fenceFd) : mFenceFd(fenceFd) {}

Fence::Fence(base::unique_fd fenceFd) : mFenceFd(std::move(fenceFd)) {}

status_t Fence::wait(int timeout) {
    if (mFenceFd == -1) return NO_ERROR;
    int err = syncWait(mFenceFd, timeout);
    return err < 0 ? -errno : status_t(NO_ERROR);
}

status_t Fence::waitForever(const char* logname) {
    if (mFenceFd == -1) return NO_ERROR;
    const int kWarningTimeout = 3000;
    int err = syncWait(mFenceFd, kWarningTimeout);
    if (err < 0 && errno == ETIME) {
        ALOGE("waitForever: %s: fence %d didn't signal in %u ms", logname, mFenceFd.get(),
              kWarningTimeout);
        err = syncWait(mFenceFd, TIMEOUT_NEVER);
    }
    return err < 0 ? -errno : status_t(NO_ERROR);
}

int Fence::dup() const {
    return ::dup(mFenceFd);
}

Fence::Status Fence::getStatus() {
    if (mFenceFd == -1) return Status::Invalid;
    return syncWait(mFenceFd, 0) == 0 ? Status::Signaled : Status::Unsignaled;
}

}  // namespace android
