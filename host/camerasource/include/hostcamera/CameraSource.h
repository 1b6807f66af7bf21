/*
 * The host's camera: a producer that queues pictures into a buffer queue as a camera HAL does
 * through the camera service (host only).
 *
 *     host::CameraSourceConfig config;
 *     config.format = HAL_PIXEL_FORMAT_YCrCb_420_SP;
 *     config.width = 640;
 *     config.height = 480;
 *     config.fenceDelayUs = 20000;   // acquire fences signal 20 ms after the queue
 *     auto camera = host::CameraSource::connect(env, imageReaderSurface, config, &err);
 *     camera->queueFrame(host::makeTestCard(640, 480), timestamp);
 *     ... ImageReader.acquireNextImage() ...
 *
 * The source connects to the queue's producer face with the camera API, not controlled by the
 * app (so frames wait for the consumer instead of replacing each other), with a dequeue time-out
 * of one second. Each frame: dequeue a buffer of the configured size and format (usage
 * SW_WRITE_OFTEN | HW_CAMERA_WRITE, plus the consumer's), wait for its release fence, write the
 * picture with the format's encoder (<hostcamera/CameraFrames.h>; scaled to the buffer's size
 * unless BLOB), and queue it with the timestamp, the data space and an acquire fence.
 *
 * The acquire fence is an eventfd that the source's timer thread signals fenceDelayUs after the
 * queue (no fence when 0): whoever reads the buffer must wait for it, as for a camera's fences.
 * The source talks to IGraphicBufferProducer directly, so its calls do not enter the host's call
 * record and no armed window fault point touches them. Destroying the source signals every
 * pending fence and disconnects.
 */
#pragma once

#include <gui/IGraphicBufferProducer.h>
#include <hostcamera/CameraFrames.h>
#include <jni.h>
#include <system/graphics.h>

#include <array>
#include <memory>

namespace host {

struct CameraSourceConfig {
    int32_t format = HAL_PIXEL_FORMAT_YCbCr_420_888;
    // The buffers' size; for BLOB the width is the capacity in bytes and the height 1.
    uint32_t width = 640;
    uint32_t height = 480;
    // The data space queued with each frame; UNKNOWN takes the consumer's default.
    android_dataspace dataSpace = HAL_DATASPACE_UNKNOWN;
    // Microseconds between the queue and the signal of the acquire fence; 0: no fence.
    int64_t fenceDelayUs = 0;
    int jpegQuality = 95;
};

class CameraSource {
public:
    // Connects to `producer`; null with *err set when the connection is refused.
    static std::unique_ptr<CameraSource> connect(
            const android::sp<android::IGraphicBufferProducer>& producer,
            const CameraSourceConfig& config, android::status_t* err = nullptr);
    // Connects to the queue behind a Java android.view.Surface (an ImageReader's).
    static std::unique_ptr<CameraSource> connect(JNIEnv* env, jobject surface,
                                                 const CameraSourceConfig& config,
                                                 android::status_t* err = nullptr);
    ~CameraSource();

    CameraSource(const CameraSource&) = delete;
    CameraSource& operator=(const CameraSource&) = delete;

    // Queues one frame of `picture`: OK, or the queue's or the encoder's error (the buffer is
    // then cancelled). TIMED_OUT when no buffer frees up within the dequeue time-out.
    android::status_t queueFrame(const RgbPicture& picture, int64_t timestamp);

    // The buffer and the JPEG size (BLOB only, else 0) of the last frame queued.
    android::sp<android::GraphicBuffer> lastBuffer() const { return mLastBuffer; }
    size_t lastJpegSize() const { return mLastJpegSize; }

    // Signals every acquire fence not yet signalled.
    void signalPendingFences();

private:
    class FenceTimeline;

    CameraSource(const android::sp<android::IGraphicBufferProducer>& producer,
                 const CameraSourceConfig& config);

    android::sp<android::IGraphicBufferProducer> mProducer;
    CameraSourceConfig mConfig;
    std::array<android::sp<android::GraphicBuffer>, 64> mSlots;
    android::sp<android::GraphicBuffer> mLastBuffer;
    size_t mLastJpegSize = 0;
    std::unique_ptr<FenceTimeline> mTimeline;
};

}  // namespace host
