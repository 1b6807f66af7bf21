// Connecting to a Surface's buffer queue as a camera producer, sizing the queue, disconnecting,
// the dequeue time-out, and a second Java Surface over the same queue.

#include <android_runtime/android_view_Surface.h>
#include <gui/IGraphicBufferProducer.h>
#include <gui/IProducerListener.h>
#include <gui/Surface.h>
#include <string.h>
#include <system/window.h>

#include "OperationSupport.h"
#include "SurfaceNativeUtilImpl.h"

using android::IGraphicBufferProducer;
using android::sp;
using android::Surface;

namespace {

// The native Surface of a Java Surface for `operation`, logging its error line when there is none.
sp<Surface> surfaceForOperation(JNIEnv* env, jobject surface, const char* operation) {
    sp<Surface> s = getSurface(env, surface);
    if (s == nullptr) NLOGE("%s: Could not retrieve surface.", operation);
    return s;
}

// Connects as a CPU-writing camera producer and asks for four buffers more than the consumer
// keeps back. Stops at the first failing step and leaves what was done in place.
int connectSurface(const sp<Surface>& s) {
    static const char* const kName = "connectSurface";
    ANativeWindow* anw = s.get();

    int err = s->connect(NATIVE_WINDOW_API_CAMERA, nullptr, false);
    if (err != 0) {
        NLOGE("%s: Unable to connect to surface, error %s (%d).", kName, strerror(-err), err);
        return err;
    }
    err = native_window_set_usage(anw, GRALLOC_USAGE_SW_WRITE_OFTEN);
    if (err != 0) {
        NLOGE("%s: Failed to set native window usage flag, error %s (%d).", kName, strerror(-err),
              err);
        return err;
    }
    int minUndequeued = 0;
    err = anw->query(anw, NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &minUndequeued);
    if (err != 0) {
        NLOGE("%s: Failed to get native window min undequeued buffers, error %s (%d).", kName,
              strerror(-err), err);
        return err;
    }
    NLOGV("%s: Setting buffer count to %d", kName, minUndequeued + 4);
    err = native_window_set_buffer_count(anw, minUndequeued + 4);
    if (err != 0) {
        NLOGE("%s: Failed to set native window buffer count, error %s (%d).", kName, strerror(-err),
              err);
        return err;
    }
    return 0;
}

}  // namespace

int SurfaceNativeUtilImpl::nativeConnectSurface(JNIEnv* env, jobject surface) {
    static const char* const kName = "nativeConnectSurface";
    NLOGV("nativeConnectSurface");
    sp<Surface> s = surfaceForOperation(env, surface, kName);
    if (s == nullptr) return android::BAD_VALUE;

    int err = connectSurface(s);
    if (err != 0) {
        NLOGE("%s: Error while configuring surface %s (%d).", kName, strerror(-err), err);
    }
    return err;
}

int SurfaceNativeUtilImpl::nativeDisconnectSurface(JNIEnv* env, jobject surface) {
    NLOGV("nativeDisconnectSurface");
    if (surface == nullptr) return 0;

    // As getNativeWindow, but a missing window is not an error here: the queue may be gone.
    sp<ANativeWindow> anw = android::android_view_Surface_getNativeWindow(env, surface);
    if (env->ExceptionCheck()) {
        anw = nullptr;
    } else if (anw == nullptr) {
        jniThrowExceptionFmt(env, "java/lang/IllegalArgumentException",
                             "Surface had no valid native window.");
    }
    if (anw == nullptr) {
        NLOGV("Buffer queue has already been abandoned.");
        return 0;
    }

    int err = native_window_api_disconnect(anw.get(), NATIVE_WINDOW_API_CAMERA);
    if (err != 0) {
        jniThrowExceptionWithMessage(env, "java/lang/UnsupportedOperationException",
                                     "Error while disconnecting surface");
        return err;
    }
    return 0;
}

int SurfaceNativeUtilImpl::nativeSetDequeueTimeout(JNIEnv* env, jobject surface, jlong timeout) {
    static const char* const kName = "nativeSetDequeueTimeout";
    NLOGV("nativeSetDequeueTimeout");
    sp<Surface> s = surfaceForOperation(env, surface, kName);
    if (s == nullptr) return android::BAD_VALUE;

    int err = s->setDequeueTimeout(timeout);
    if (err != 0) {
        NLOGE("%s: Error while set dequeue timeout (%ldns) on surface %s (%d).", kName,
              static_cast<long>(timeout), strerror(-err), err);
        return err;
    }
    return 0;
}

jobject SurfaceNativeUtilImpl::nativeCreatePrivateSurface(JNIEnv* env, jobject surface) {
    NLOGV("nativeCreatePrivateSurface");
    sp<IGraphicBufferProducer> producer;
    sp<Surface> s = getSurface(env, surface);
    if (s != nullptr) producer = s->getIGraphicBufferProducer();
    // Called with a null producer too: the glue then yields null and the exception from
    // getSurface stays pending.
    return android::android_view_Surface_createFromIGraphicBufferProducer(env, producer);
}
