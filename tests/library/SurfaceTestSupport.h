/*
 * Producing and inspecting frames in the library's Surface tests.
 */
#pragma once

#include <gtest/gtest.h>
#include <gui/BufferItem.h>
#include <system/window.h>
#include <testsupport/JniTest.h>
#include <testsupport/TestSurface.h>
#include <ui/GraphicBuffer.h>

#include <algorithm>
#include <optional>
#include <string>

#include "LibraryTestSupport.h"

namespace nuvra::test {

// Dequeues one buffer from the producer side (as a producer that is already connected), queues
// it unchanged and acquires it at the consumer; nullopt when any step fails.
inline std::optional<android::BufferItem> cycleOneFrame(TestSurface& ts) {
    ANativeWindow* anw = ts.surface.get();
    ANativeWindowBuffer* anb = nullptr;
    if (native_window_dequeue_buffer_and_wait(anw, &anb) != 0) return std::nullopt;
    if (anw->queueBuffer(anw, anb, -1) != 0) return std::nullopt;
    android::BufferItem item;
    if (ts.consumer->acquireBuffer(&item, 0) != android::OK) return std::nullopt;
    ts.consumer->releaseBuffer(item);
    return item;
}

// How many buffers the producer can hold at once (dequeues until one fails, then cancels all).
inline int dequeuableBuffers(TestSurface& ts) {
    ANativeWindow* anw = ts.surface.get();
    ts.surface->setDequeueTimeout(0);
    std::vector<ANativeWindowBuffer*> held;
    ANativeWindowBuffer* anb = nullptr;
    while (held.size() < 70 && native_window_dequeue_buffer_and_wait(anw, &anb) == 0) {
        held.push_back(anb);
    }
    for (ANativeWindowBuffer* b : held) anw->cancelBuffer(anw, b, -1);
    return static_cast<int>(held.size());
}

// The one Java exception pending, taken off the thread: `className` with `message`.
inline void expectPendingException(JNIEnv* env, const std::string& className,
                                   const std::optional<std::string>& message) {
    expectPending(env, describe({className, message}));
}

// Whether `buffer` was still locked, unlocking it: the gralloc complains (tag "Gralloc4") about
// the unlock of a buffer that is not locked, and only then.
inline bool wasLeftLocked(const android::sp<android::GraphicBuffer>& buffer) {
    const size_t before = logTexts("Gralloc4", ANDROID_LOG_ERROR).size();
    buffer->unlock();
    return logTexts("Gralloc4", ANDROID_LOG_ERROR).size() == before;
}

// "<prefix> <strerror(-err)> (<err>)<end>", the platform-error ending of the library's lines.
inline std::string withError(const std::string& prefix, int err, const char* end = ".") {
    return prefix + " " + strerror(-err) + " (" + std::to_string(err) + ")" + end;
}

}  // namespace nuvra::test
