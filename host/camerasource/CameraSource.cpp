// The host camera: queues pictures into a buffer queue as a camera HAL does.

#include <android_runtime/android_view_Surface.h>
#include <gui/Surface.h>
#include <hardware/gralloc.h>
#include <hostcamera/CameraSource.h>
#include <log/log.h>
#include <system/window.h>
#include <ui/HostGrallocLayout.h>

#include "FenceTimeline.h"

#undef LOG_TAG
#define LOG_TAG "HostCamera"

namespace host {

using android::BAD_VALUE;
using android::Fence;
using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::OK;
using android::Rect;
using android::sp;
using android::status_t;

namespace {

// The camera service gives up on a dequeue after this long.
constexpr nsecs_t kDequeueTimeout = 1000000000;

constexpr uint64_t kCameraUsage = GRALLOC_USAGE_SW_WRITE_OFTEN | GRALLOC_USAGE_HW_CAMERA_WRITE;

}  // namespace

CameraSource::CameraSource(const sp<IGraphicBufferProducer>& producer,
                           const CameraSourceConfig& config)
    : mProducer(producer), mConfig(config), mTimeline(new FenceTimeline) {}

std::unique_ptr<CameraSource> CameraSource::connect(const sp<IGraphicBufferProducer>& producer,
                                                    const CameraSourceConfig& config,
                                                    status_t* err) {
    status_t status = BAD_VALUE;
    if (producer != nullptr) {
        IGraphicBufferProducer::QueueBufferOutput output;
        status = producer->connect(nullptr, NATIVE_WINDOW_API_CAMERA,
                                   /*producerControlledByApp*/ false, &output);
        if (status == OK) status = producer->setDequeueTimeout(kDequeueTimeout);
        if (status != OK) producer->disconnect(NATIVE_WINDOW_API_CAMERA);
    }
    if (err != nullptr) *err = status;
    if (status != OK) {
        ALOGE("camera source: cannot connect to the queue: %d", status);
        return nullptr;
    }
    return std::unique_ptr<CameraSource>(new CameraSource(producer, config));
}

std::unique_ptr<CameraSource> CameraSource::connect(JNIEnv* env, jobject surface,
                                                    const CameraSourceConfig& config,
                                                    status_t* err) {
    sp<android::Surface> native = android::android_view_Surface_getSurface(env, surface);
    return connect(native == nullptr ? nullptr : native->getIGraphicBufferProducer(), config, err);
}

CameraSource::~CameraSource() {
    mTimeline.reset();  // signals what is still pending
    mProducer->disconnect(NATIVE_WINDOW_API_CAMERA);
}

void CameraSource::signalPendingFences() {
    mTimeline->signalAll();
}

status_t CameraSource::queueFrame(const RgbPicture& picture, int64_t timestamp) {
    int slot = -1;
    sp<Fence> releaseFence;
    status_t result = mProducer->dequeueBuffer(&slot, &releaseFence, mConfig.width, mConfig.height,
                                               mConfig.format, kCameraUsage, nullptr, nullptr);
    if (result < 0) {
        ALOGE("camera source: dequeue failed: %d", result);
        return result;
    }
    if ((result & IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION) != 0 ||
        mSlots[slot] == nullptr) {
        status_t err = mProducer->requestBuffer(slot, &mSlots[slot]);
        if (err != OK) {
            mProducer->cancelBuffer(slot, releaseFence);
            return err;
        }
    }
    sp<GraphicBuffer> buffer = mSlots[slot];
    status_t err = releaseFence->waitForever("CameraSource::queueFrame");
    if (err == OK) {
        RgbPicture scaled =
                mConfig.format == HAL_PIXEL_FORMAT_BLOB
                        ? picture
                        : scalePicture(picture, buffer->getWidth(), buffer->getHeight());
        err = encodeCameraFrame(scaled, *buffer, mConfig.jpegQuality);
    }
    if (err != OK) {
        mProducer->cancelBuffer(slot, Fence::NO_FENCE);
        return err;
    }

    size_t jpegSize = 0;
    if (mConfig.format == HAL_PIXEL_FORMAT_BLOB) {
        std::vector<uint8_t> contents = readBufferContents(*buffer);
        const uint8_t* size = &contents[contents.size() - 4];
        jpegSize = size[0] | size[1] << 8 | size[2] << 16 | static_cast<uint32_t>(size[3]) << 24;
    }

    sp<Fence> acquireFence = Fence::NO_FENCE;
    if (mConfig.fenceDelayUs > 0) {
        int fd = mTimeline->createFence(mConfig.fenceDelayUs);
        if (fd >= 0) acquireFence = new Fence(fd);
    }
    IGraphicBufferProducer::QueueBufferInput input(
            timestamp, /*isAutoTimestamp*/ false, mConfig.dataSpace, Rect::EMPTY_RECT,
            NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, acquireFence);
    IGraphicBufferProducer::QueueBufferOutput output;
    err = mProducer->queueBuffer(slot, input, &output);
    if (err != OK) {
        ALOGE("camera source: queue failed: %d", err);
        return err;
    }
    mLastBuffer = buffer;
    mLastJpegSize = jpegSize;
    return OK;
}

}  // namespace host
