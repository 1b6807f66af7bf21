/*
 * ANativeWindow: the producer end of a buffer queue as the platform's C interface sees it, with
 * Android's layout, request codes and inline helpers. A window is driven through its function
 * pointers: query() reads a property, perform() sets one (variadic arguments by request),
 * dequeueBuffer/queueBuffer/cancelBuffer move buffers. android::Surface implements it.
 */
#pragma once

#include <cutils/native_handle.h>
#include <nativebase/nativebase.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <system/graphics.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ANDROID_NATIVE_WINDOW_MAGIC ANDROID_NATIVE_MAKE_CONSTANT('_', 'w', 'n', 'd')

// Timestamp value meaning "let queueBuffer stamp the buffer with the current time".
#define NATIVE_WINDOW_TIMESTAMP_AUTO (-9223372036854775807LL - 1)

/* attributes queriable with query() */
enum {
    NATIVE_WINDOW_WIDTH = 0,
    NATIVE_WINDOW_HEIGHT = 1,
    NATIVE_WINDOW_FORMAT = 2,
    /* The minimum number of buffers that must remain un-dequeued after a buffer has been
     * queued. */
    NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS = 3,
    NATIVE_WINDOW_QUEUES_TO_WINDOW_COMPOSER = 4,
    NATIVE_WINDOW_CONCRETE_TYPE = 5,
    NATIVE_WINDOW_DEFAULT_WIDTH = 6,
    NATIVE_WINDOW_DEFAULT_HEIGHT = 7,
    NATIVE_WINDOW_TRANSFORM_HINT = 8,
    NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND = 9,
    /* The consumer gralloc usage bits currently set by the consumer (low 32 bits). */
    NATIVE_WINDOW_CONSUMER_USAGE_BITS = 10,
    NATIVE_WINDOW_STICKY_TRANSFORM = 11,
    /* The default data space of the buffers as set by the consumer. */
    NATIVE_WINDOW_DEFAULT_DATASPACE = 12,
    NATIVE_WINDOW_BUFFER_AGE = 13,
    NATIVE_WINDOW_LAST_DEQUEUE_DURATION = 14,
    NATIVE_WINDOW_LAST_QUEUE_DURATION = 15,
    NATIVE_WINDOW_LAYER_COUNT = 16,
    NATIVE_WINDOW_IS_VALID = 17,
    NATIVE_WINDOW_FRAME_TIMESTAMPS_SUPPORTS_PRESENT = 18,
    NATIVE_WINDOW_CONSUMER_IS_PROTECTED = 19,
    NATIVE_WINDOW_DATASPACE = 20,
    NATIVE_WINDOW_MAX_BUFFER_COUNT = 21,
};

/* Valid operations for the (*perform)() hook. */
enum {
    // clang-format off
    NATIVE_WINDOW_SET_USAGE                       =  0,   /* deprecated */
    NATIVE_WINDOW_CONNECT                         =  1,   /* deprecated */
    NATIVE_WINDOW_DISCONNECT                      =  2,   /* deprecated */
    NATIVE_WINDOW_SET_CROP                        =  3,   /* private */
    NATIVE_WINDOW_SET_BUFFER_COUNT                =  4,
    NATIVE_WINDOW_SET_BUFFERS_GEOMETRY            =  5,   /* deprecated */
    NATIVE_WINDOW_SET_BUFFERS_TRANSFORM           =  6,
    NATIVE_WINDOW_SET_BUFFERS_TIMESTAMP           =  7,
    NATIVE_WINDOW_SET_BUFFERS_DIMENSIONS          =  8,
    NATIVE_WINDOW_SET_BUFFERS_FORMAT              =  9,
    NATIVE_WINDOW_SET_SCALING_MODE                = 10,   /* private */
    NATIVE_WINDOW_LOCK                            = 11,   /* private */
    NATIVE_WINDOW_UNLOCK_AND_POST                 = 12,   /* private */
    NATIVE_WINDOW_API_CONNECT                     = 13,   /* private */
    NATIVE_WINDOW_API_DISCONNECT                  = 14,   /* private */
    NATIVE_WINDOW_SET_BUFFERS_USER_DIMENSIONS     = 15,   /* private */
    NATIVE_WINDOW_SET_POST_TRANSFORM_CROP         = 16,   /* deprecated, unimplemented */
    NATIVE_WINDOW_SET_BUFFERS_STICKY_TRANSFORM    = 17,   /* private */
    NATIVE_WINDOW_SET_SIDEBAND_STREAM             = 18,
    NATIVE_WINDOW_SET_BUFFERS_DATASPACE           = 19,
    NATIVE_WINDOW_SET_SURFACE_DAMAGE              = 20,   /* private */
    NATIVE_WINDOW_SET_SHARED_BUFFER_MODE          = 21,
    NATIVE_WINDOW_SET_AUTO_REFRESH                = 22,
    NATIVE_WINDOW_GET_REFRESH_CYCLE_DURATION      = 23,
    NATIVE_WINDOW_GET_NEXT_FRAME_ID               = 24,
    NATIVE_WINDOW_ENABLE_FRAME_TIMESTAMPS         = 25,
    NATIVE_WINDOW_GET_COMPOSITOR_TIMING           = 26,
    NATIVE_WINDOW_GET_FRAME_TIMESTAMPS            = 27,
    NATIVE_WINDOW_GET_WIDE_COLOR_SUPPORT          = 28,
    NATIVE_WINDOW_GET_HDR_SUPPORT                 = 29,
    NATIVE_WINDOW_SET_USAGE64                     = 30,
    NATIVE_WINDOW_GET_CONSUMER_USAGE64            = 31,
    NATIVE_WINDOW_SET_BUFFERS_SMPTE2086_METADATA  = 32,
    NATIVE_WINDOW_SET_BUFFERS_CTA861_3_METADATA   = 33,
    NATIVE_WINDOW_SET_BUFFERS_HDR10_PLUS_METADATA = 34,
    NATIVE_WINDOW_SET_AUTO_PREROTATION            = 35,
    NATIVE_WINDOW_GET_LAST_DEQUEUE_START          = 36,   /* private */
    NATIVE_WINDOW_SET_DEQUEUE_TIMEOUT             = 37,   /* private */
    NATIVE_WINDOW_GET_LAST_DEQUEUE_DURATION       = 38,   /* private */
    NATIVE_WINDOW_GET_LAST_QUEUE_DURATION         = 39,   /* private */
    NATIVE_WINDOW_SET_FRAME_RATE                  = 40,
    NATIVE_WINDOW_SET_CANCEL_INTERCEPTOR          = 41,   /* private */
    NATIVE_WINDOW_SET_DEQUEUE_INTERCEPTOR         = 42,   /* private */
    NATIVE_WINDOW_SET_PERFORM_INTERCEPTOR         = 43,   /* private */
    NATIVE_WINDOW_SET_QUEUE_INTERCEPTOR           = 44,   /* private */
    NATIVE_WINDOW_ALLOCATE_BUFFERS                = 45,   /* private */
    NATIVE_WINDOW_GET_LAST_QUEUED_BUFFER          = 46,   /* private */
    NATIVE_WINDOW_SET_QUERY_INTERCEPTOR           = 47,   /* private */
    NATIVE_WINDOW_SET_FRAME_TIMELINE_INFO         = 48,   /* private */
    NATIVE_WINDOW_GET_LAST_QUEUED_BUFFER2         = 49,   /* private */
    // clang-format on
};

/* parameter for NATIVE_WINDOW_[API_][DIS]CONNECT */
enum {
    /* Buffers will be queued by EGL via eglSwapBuffers after being filled using OpenGL ES. */
    NATIVE_WINDOW_API_EGL = 1,
    /* Buffers will be queued after being filled using the CPU */
    NATIVE_WINDOW_API_CPU = 2,
    /* Buffers will be queued by Stagefright after being filled by a video decoder. */
    NATIVE_WINDOW_API_MEDIA = 3,
    /* Buffers will be queued by the the camera HAL. */
    NATIVE_WINDOW_API_CAMERA = 4,
};

/* parameter for NATIVE_WINDOW_SET_BUFFERS_TRANSFORM */
enum {
    /* flip source image horizontally */
    NATIVE_WINDOW_TRANSFORM_FLIP_H = HAL_TRANSFORM_FLIP_H,
    /* flip source image vertically */
    NATIVE_WINDOW_TRANSFORM_FLIP_V = HAL_TRANSFORM_FLIP_V,
    /* rotate source image 90 degrees clock-wise, and is applied after TRANSFORM_FLIP_{H|V} */
    NATIVE_WINDOW_TRANSFORM_ROT_90 = HAL_TRANSFORM_ROT_90,
    /* rotate source image 180 degrees */
    NATIVE_WINDOW_TRANSFORM_ROT_180 = HAL_TRANSFORM_ROT_180,
    /* rotate source image 270 degrees clock-wise */
    NATIVE_WINDOW_TRANSFORM_ROT_270 = HAL_TRANSFORM_ROT_270,
    /* transforms source by the inverse transform of the screen it is displayed onto. This
     * transform is applied last */
    NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY = 0x08
};

/* parameter for NATIVE_WINDOW_SET_SCALING_MODE */
enum {
    /* the window content is not updated (frozen) until a buffer of the window size is
     * received (enqueued) */
    NATIVE_WINDOW_SCALING_MODE_FREEZE = 0,
    /* the buffer is scaled in both dimensions to match the window size */
    NATIVE_WINDOW_SCALING_MODE_SCALE_TO_WINDOW = 1,
    /* the buffer is scaled uniformly such that the smaller dimension of the buffer matches
     * the window size (cropping in the process) */
    NATIVE_WINDOW_SCALING_MODE_SCALE_CROP = 2,
    /* the window is clipped to the size of the buffer's crop rectangle; pixels outside the
     * crop rectangle are treated as if they are completely transparent. */
    NATIVE_WINDOW_SCALING_MODE_NO_SCALE_CROP = 3,
};

/* values returned by the NATIVE_WINDOW_CONCRETE_TYPE query */
enum {
    NATIVE_WINDOW_FRAMEBUFFER = 0, /* FramebufferNativeWindow */
    NATIVE_WINDOW_SURFACE = 1,     /* Surface */
};

struct ANativeWindow {
#ifdef __cplusplus
    ANativeWindow() : flags(0), minSwapInterval(0), maxSwapInterval(0), xdpi(0), ydpi(0) {
        common.magic = ANDROID_NATIVE_WINDOW_MAGIC;
        common.version = sizeof(ANativeWindow);
        memset(common.reserved, 0, sizeof(common.reserved));
    }

    /* Implement the methods that sp<ANativeWindow> expects so that it can be used to
     * automatically refcount ANativeWindow's. */
    void incStrong(const void* /*id*/) const {
        common.incRef(const_cast<android_native_base_t*>(&common));
    }
    void decStrong(const void* /*id*/) const {
        common.decRef(const_cast<android_native_base_t*>(&common));
    }
#endif

    struct android_native_base_t common;

    /* flags describing some attributes of this surface or its updater */
    const uint32_t flags;

    /* min swap interval supported by this updated */
    const int minSwapInterval;

    /* max swap interval supported by this updated */
    const int maxSwapInterval;

    /* horizontal and vertical resolution in DPI */
    const float xdpi;
    const float ydpi;

    /* Some storage reserved for the OEM's driver. */
    intptr_t oem[4];

    /* Set the swap interval for this surface. */
    int (*setSwapInterval)(struct ANativeWindow* window, int interval);

    /* Deprecated: dequeues a buffer and waits for its fence before returning it. */
    int (*dequeueBuffer_DEPRECATED)(struct ANativeWindow* window,
                                    struct ANativeWindowBuffer** buffer);

    /* Deprecated: a no-op kept for old drivers. */
    int (*lockBuffer_DEPRECATED)(struct ANativeWindow* window, struct ANativeWindowBuffer* buffer);

    /* Deprecated: queues a buffer without a fence. */
    int (*queueBuffer_DEPRECATED)(struct ANativeWindow* window, struct ANativeWindowBuffer* buffer);

    /* Retrieves information about this surface. */
    int (*query)(const struct ANativeWindow* window, int what, int* value);

    /* Sets a property of the window; the arguments after `operation` depend on it. */
    int (*perform)(struct ANativeWindow* window, int operation, ...);

    /* Deprecated: cancels a buffer without a fence. */
    int (*cancelBuffer_DEPRECATED)(struct ANativeWindow* window,
                                   struct ANativeWindowBuffer* buffer);

    /* Hands out a buffer; *fenceFd (-1 for none) must signal before the buffer is written. The
     * caller owns the fence descriptor. */
    int (*dequeueBuffer)(struct ANativeWindow* window, struct ANativeWindowBuffer** buffer,
                         int* fenceFd);

    /* Hands a filled buffer to the consumer; the window takes ownership of fenceFd. */
    int (*queueBuffer)(struct ANativeWindow* window, struct ANativeWindowBuffer* buffer,
                       int fenceFd);

    /* Returns a dequeued buffer unfilled; the window takes ownership of fenceFd. */
    int (*cancelBuffer)(struct ANativeWindow* window, struct ANativeWindowBuffer* buffer,
                        int fenceFd);
};

typedef struct ANativeWindow ANativeWindow;

/* Backwards compatibility: use ANativeWindow (struct ANativeWindow in C). */
typedef struct ANativeWindow android_native_window_t;

static inline int native_window_set_usage(struct ANativeWindow* window, uint64_t usage) {
    return window->perform(window, NATIVE_WINDOW_SET_USAGE64, usage);
}

/* deprecated. Always returns 0. Don't call. */
static inline int native_window_connect(struct ANativeWindow* window __attribute__((unused)),
                                        int api __attribute__((unused))) {
    return 0;
}

/* deprecated. Always returns 0. Don't call. */
static inline int native_window_disconnect(struct ANativeWindow* window __attribute__((unused)),
                                           int api __attribute__((unused))) {
    return 0;
}

static inline int native_window_set_crop(struct ANativeWindow* window,
                                         android_native_rect_t const* crop) {
    return window->perform(window, NATIVE_WINDOW_SET_CROP, crop);
}

static inline int native_window_set_buffer_count(struct ANativeWindow* window, size_t bufferCount) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFER_COUNT, bufferCount);
}

/* deprecated: use set_buffers_dimensions and set_buffers_format */
static inline int native_window_set_buffers_geometry(struct ANativeWindow* window, int w, int h,
                                                     int format) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_GEOMETRY, w, h, format);
}

/* The size of the buffers dequeued from now on; 0 x 0 returns to the consumer's default. */
static inline int native_window_set_buffers_dimensions(struct ANativeWindow* window, int w, int h) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_DIMENSIONS, w, h);
}

/* The size used when no buffer dimensions are set (see set_buffers_dimensions). */
static inline int native_window_set_buffers_user_dimensions(struct ANativeWindow* window, int w,
                                                            int h) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_USER_DIMENSIONS, w, h);
}

/* The pixel format of the buffers dequeued from now on; 0 returns to the consumer's default. */
static inline int native_window_set_buffers_format(struct ANativeWindow* window, int format) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_FORMAT, format);
}

static inline int native_window_set_buffers_data_space(struct ANativeWindow* window,
                                                       android_dataspace_t dataSpace) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_DATASPACE, dataSpace);
}

static inline int native_window_set_buffers_transform(struct ANativeWindow* window, int transform) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_TRANSFORM, transform);
}

static inline int native_window_set_buffers_sticky_transform(struct ANativeWindow* window,
                                                             int transform) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_STICKY_TRANSFORM, transform);
}

/* The timestamp of the buffers queued from now on; NATIVE_WINDOW_TIMESTAMP_AUTO (the default)
 * stamps each buffer with the time of its queueBuffer. */
static inline int native_window_set_buffers_timestamp(struct ANativeWindow* window,
                                                      int64_t timestamp) {
    return window->perform(window, NATIVE_WINDOW_SET_BUFFERS_TIMESTAMP, timestamp);
}

static inline int native_window_set_scaling_mode(struct ANativeWindow* window, int mode) {
    return window->perform(window, NATIVE_WINDOW_SET_SCALING_MODE, mode);
}

static inline int native_window_api_connect(struct ANativeWindow* window, int api) {
    return window->perform(window, NATIVE_WINDOW_API_CONNECT, api);
}

static inline int native_window_api_disconnect(struct ANativeWindow* window, int api) {
    return window->perform(window, NATIVE_WINDOW_API_DISCONNECT, api);
}

/* Dequeues a buffer and waits on its fence. The buffer may safely be accessed when this
 * returns 0. An error is returned if either the dequeue or the wait fails. */
static inline int native_window_dequeue_buffer_and_wait(ANativeWindow* anw,
                                                        struct ANativeWindowBuffer** anb) {
    return anw->dequeueBuffer_DEPRECATED(anw, anb);
}

static inline int native_window_get_consumer_usage(struct ANativeWindow* window,
                                                   uint64_t* outUsage) {
    return window->perform(window, NATIVE_WINDOW_GET_CONSUMER_USAGE64, outUsage);
}

static inline int native_window_set_auto_prerotation(struct ANativeWindow* window,
                                                     bool autoPrerotation) {
    return window->perform(window, NATIVE_WINDOW_SET_AUTO_PREROTATION, autoPrerotation);
}

static inline int native_window_set_dequeue_timeout(struct ANativeWindow* window, int64_t timeout) {
    return window->perform(window, NATIVE_WINDOW_SET_DEQUEUE_TIMEOUT, timeout);
}

#ifdef __cplusplus
}
#endif
