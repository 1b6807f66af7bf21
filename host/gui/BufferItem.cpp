// BufferItem: a queued buffer and what the producer recorded with it.

#include <gui/BufferItem.h>

namespace android {

BufferItem::BufferItem()
    : mGraphicBuffer(nullptr),
      mFence(nullptr),
      mCrop(Rect::INVALID_RECT),
      mTransform(0),
      mScalingMode(NATIVE_WINDOW_SCALING_MODE_FREEZE),
      mTimestamp(0),
      mIsAutoTimestamp(false),
      mDataSpace(HAL_DATASPACE_UNKNOWN),
      mFrameNumber(0),
      mSlot(INVALID_BUFFER_SLOT),
      mIsDroppable(false),
      mAcquireCalled(false),
      mTransformToDisplayInverse(false),
      mAutoRefresh(false),
      mQueuedBuffer(true),
      mIsStale(false),
      mApi(0) {}

BufferItem::~BufferItem() {}

const char* BufferItem::scalingModeName(uint32_t scalingMode) {
    switch (scalingMode) {
        case NATIVE_WINDOW_SCALING_MODE_FREEZE:
            return "SCALING_MODE_FREEZE";
        case NATIVE_WINDOW_SCALING_MODE_SCALE_TO_WINDOW:
            return "SCALING_MODE_SCALE_TO_WINDOW";
        case NATIVE_WINDOW_SCALING_MODE_SCALE_CROP:
            return "SCALING_MODE_SCALE_CROP";
        default:
            return "Unknown";
    }
}

}  // namespace android
