// The native side of android.media.ImageReader: a BufferItemConsumer behind the reader's
// Surface and a pool of BufferItems, one per image the reader may hand out.

#define LOG_TAG "ImageReader_JNI"

#include <android_runtime/AndroidRuntime.h>
#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <android_runtime/android_view_Surface.h>
#include <cutils/properties.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <hostmedia/ImageReaderState.h>
#include <inttypes.h>
#include <log/log.h>
#include <ui/Point.h>
#include <unistd.h>
#include <utils/List.h>
#include <utils/String8.h>

#include <atomic>
#include <cstring>

#include "android_media_Utils.h"

#define ANDROID_MEDIA_IMAGEREADER_CTX_JNI_ID "mNativeContext"
#define ANDROID_MEDIA_SURFACEIMAGE_BUFFER_JNI_ID "mNativeBuffer"
#define ANDROID_MEDIA_SURFACEIMAGE_TS_JNI_ID "mTimestamp"
#define ANDROID_MEDIA_SURFACEIMAGE_DS_JNI_ID "mDataSpace"
#define ANDROID_MEDIA_SURFACEIMAGE_TF_JNI_ID "mTransform"
#define ANDROID_MEDIA_SURFACEIMAGE_SM_JNI_ID "mScalingMode"

using namespace android;

namespace {

const char* const kUnsupportedOperationException = "java/lang/UnsupportedOperationException";

enum {
    ACQUIRE_SUCCESS = 0,
    ACQUIRE_NO_BUFFERS = 1,
    ACQUIRE_MAX_IMAGES = 2,
};

struct {
    jfieldID mNativeContext;
    jmethodID postEventFromNative;
} gImageReaderClassInfo;

struct {
    jfieldID mNativeBuffer;
    jfieldID mTimestamp;
    jfieldID mDataSpace;
    jfieldID mTransform;
    jfieldID mScalingMode;
} gSurfaceImageClassInfo;

// Where the acquire fence of a queued frame is waited for. Android's Java ImageReader waits
// when it acquires the frame; the NDK's AImageReader leaves the fence with the image, so that
// whoever locks the image's buffer waits. The host does the first unless the property
// "host.imagereader.fence_wait" is "lock".
bool acquireWaitsForFence() {
    char value[PROPERTY_VALUE_MAX];
    property_get("host.imagereader.fence_wait", value, "acquire");
    return strcmp(value, "lock") != 0;
}

int32_t createProcessUniqueId() {
    static std::atomic<int32_t> globalCounter{0};
    return globalCounter.fetch_add(1);
}

class JNIImageReaderContext : public ConsumerBase::FrameAvailableListener {
public:
    JNIImageReaderContext(JNIEnv* env, jobject weakThiz, jclass clazz, int maxImages);
    ~JNIImageReaderContext() override;

    void onFrameAvailable(const BufferItem& item) override;

    BufferItem* getBufferItem();
    void returnBufferItem(BufferItem* buffer);

    void setBufferConsumer(const sp<BufferItemConsumer>& consumer) { mConsumer = consumer; }
    BufferItemConsumer* getBufferConsumer() { return mConsumer.get(); }

    void setProducer(const sp<IGraphicBufferProducer>& producer) { mProducer = producer; }
    // Host: the queue's consumer face, for tests (<hostmedia/ImageReaderState.h>).
    void setQueueConsumer(const sp<IGraphicBufferConsumer>& consumer) { mQueueConsumer = consumer; }
    IGraphicBufferConsumer* getQueueConsumer() { return mQueueConsumer.get(); }
    size_t freeBufferItemCount() const { return mBuffers.size(); }
    IGraphicBufferProducer* getProducer() { return mProducer.get(); }

    void setBufferFormat(int format) { mFormat = format; }
    int getBufferFormat() { return mFormat; }

    void setBufferDataspace(android_dataspace dataSpace) { mDataSpace = dataSpace; }
    android_dataspace getBufferDataspace() { return mDataSpace; }

    void setBufferWidth(int width) { mWidth = width; }
    int getBufferWidth() { return mWidth; }

    void setBufferHeight(int height) { mHeight = height; }
    int getBufferHeight() { return mHeight; }

private:
    static JNIEnv* getJNIEnv(bool* needsDetach);
    static void detachJNI();

    List<BufferItem*> mBuffers;
    sp<BufferItemConsumer> mConsumer;
    sp<IGraphicBufferProducer> mProducer;
    sp<IGraphicBufferConsumer> mQueueConsumer;
    jobject mWeakThiz;
    jclass mClazz;
    int mFormat;
    android_dataspace mDataSpace;
    int mWidth;
    int mHeight;
};

JNIImageReaderContext::JNIImageReaderContext(JNIEnv* env, jobject weakThiz, jclass clazz,
                                             int maxImages)
    : mWeakThiz(env->NewGlobalRef(weakThiz)),
      mClazz(static_cast<jclass>(env->NewGlobalRef(clazz))),
      mFormat(0),
      mDataSpace(HAL_DATASPACE_UNKNOWN),
      mWidth(-1),
      mHeight(-1) {
    for (int i = 0; i < maxImages; i++) {
        BufferItem* buffer = new BufferItem;
        mBuffers.push_back(buffer);
    }
}

JNIEnv* JNIImageReaderContext::getJNIEnv(bool* needsDetach) {
    LOG_ALWAYS_FATAL_IF(needsDetach == nullptr, "needsDetach is null!!!");
    *needsDetach = false;
    JNIEnv* env = AndroidRuntime::getJNIEnv();
    if (env == nullptr) {
        JavaVMAttachArgs args = {JNI_VERSION_1_4, nullptr, nullptr};
        JavaVM* vm = AndroidRuntime::getJavaVM();
        int result = vm->AttachCurrentThread(reinterpret_cast<void**>(&env), &args);
        if (result != JNI_OK) {
            ALOGE("thread attach failed: %#x", result);
            return nullptr;
        }
        *needsDetach = true;
    }
    return env;
}

void JNIImageReaderContext::detachJNI() {
    JavaVM* vm = AndroidRuntime::getJavaVM();
    int result = vm->DetachCurrentThread();
    if (result != JNI_OK) {
        ALOGE("thread detach failed: %#x", result);
    }
}

BufferItem* JNIImageReaderContext::getBufferItem() {
    if (mBuffers.empty()) {
        return nullptr;
    }
    // Return a BufferItem pointer and remove it from the list
    List<BufferItem*>::iterator it = mBuffers.begin();
    BufferItem* buffer = *it;
    mBuffers.erase(it);
    return buffer;
}

void JNIImageReaderContext::returnBufferItem(BufferItem* buffer) {
    buffer->mGraphicBuffer = nullptr;
    mBuffers.push_back(buffer);
}

JNIImageReaderContext::~JNIImageReaderContext() {
    bool needsDetach = false;
    JNIEnv* env = getJNIEnv(&needsDetach);
    if (env != nullptr) {
        env->DeleteGlobalRef(mWeakThiz);
        env->DeleteGlobalRef(mClazz);
    } else {
        ALOGW("leaking JNI object references");
    }
    if (needsDetach) {
        detachJNI();
    }

    // Delete buffer items.
    for (List<BufferItem*>::iterator it = mBuffers.begin(); it != mBuffers.end(); it++) {
        delete *it;
    }

    if (mConsumer != 0) {
        mConsumer.clear();
    }
}

void JNIImageReaderContext::onFrameAvailable(const BufferItem& /*item*/) {
    ALOGV("%s: frame available", __FUNCTION__);
    bool needsDetach = false;
    JNIEnv* env = getJNIEnv(&needsDetach);
    if (env != nullptr) {
        ALOGV("%s: on frame available", __FUNCTION__);
        env->CallStaticVoidMethod(mClazz, gImageReaderClassInfo.postEventFromNative, mWeakThiz);
        if (env->ExceptionCheck()) {
            ALOGE("An exception was thrown by the image available listener");
            env->ExceptionDescribe();
            env->ExceptionClear();
        }
    } else {
        ALOGW("onFrameAvailable event will not posted");
    }
    if (needsDetach) {
        detachJNI();
    }
}

JNIImageReaderContext* ImageReader_getContext(JNIEnv* env, jobject thiz) {
    return reinterpret_cast<JNIImageReaderContext*>(
            env->GetLongField(thiz, gImageReaderClassInfo.mNativeContext));
}

IGraphicBufferProducer* ImageReader_getProducer(JNIEnv* env, jobject thiz) {
    ALOGV("%s:", __FUNCTION__);
    JNIImageReaderContext* const ctx = ImageReader_getContext(env, thiz);
    if (ctx == nullptr) {
        jniThrowRuntimeException(env, "ImageReaderContext is not initialized");
        return nullptr;
    }
    return ctx->getProducer();
}

void ImageReader_setNativeContext(JNIEnv* env, jobject thiz, sp<JNIImageReaderContext> ctx) {
    ALOGV("%s:", __FUNCTION__);
    JNIImageReaderContext* const p = ImageReader_getContext(env, thiz);
    if (ctx != 0) {
        ctx->incStrong(reinterpret_cast<void*>(ImageReader_setNativeContext));
    }
    if (p) {
        p->decStrong(reinterpret_cast<void*>(ImageReader_setNativeContext));
    }
    env->SetLongField(thiz, gImageReaderClassInfo.mNativeContext,
                      reinterpret_cast<jlong>(ctx.get()));
}

BufferItemConsumer* ImageReader_getBufferConsumer(JNIEnv* env, jobject thiz) {
    ALOGV("%s:", __FUNCTION__);
    JNIImageReaderContext* const ctx = ImageReader_getContext(env, thiz);
    if (ctx == nullptr) {
        jniThrowRuntimeException(env, "ImageReaderContext is not initialized");
        return nullptr;
    }
    return ctx->getBufferConsumer();
}

void Image_setBufferItem(JNIEnv* env, jobject thiz, const BufferItem* buffer) {
    env->SetLongField(thiz, gSurfaceImageClassInfo.mNativeBuffer, reinterpret_cast<jlong>(buffer));
}

BufferItem* Image_getBufferItem(JNIEnv* env, jobject image) {
    return reinterpret_cast<BufferItem*>(
            env->GetLongField(image, gSurfaceImageClassInfo.mNativeBuffer));
}

// ----------------------------------------------------------------------------

void ImageReader_classInit(JNIEnv* env, jclass clazz) {
    ALOGV("%s:", __FUNCTION__);

    jclass imageClazz = env->FindClass("android/media/ImageReader$SurfaceImage");
    LOG_ALWAYS_FATAL_IF(imageClazz == nullptr,
                        "can't find android/graphics/ImageReader$SurfaceImage");
    gSurfaceImageClassInfo.mNativeBuffer =
            env->GetFieldID(imageClazz, ANDROID_MEDIA_SURFACEIMAGE_BUFFER_JNI_ID, "J");
    LOG_ALWAYS_FATAL_IF(gSurfaceImageClassInfo.mNativeBuffer == nullptr,
                        "can't find android/graphics/ImageReader.%s",
                        ANDROID_MEDIA_SURFACEIMAGE_BUFFER_JNI_ID);

    gSurfaceImageClassInfo.mTimestamp =
            env->GetFieldID(imageClazz, ANDROID_MEDIA_SURFACEIMAGE_TS_JNI_ID, "J");
    LOG_ALWAYS_FATAL_IF(gSurfaceImageClassInfo.mTimestamp == nullptr,
                        "can't find android/graphics/ImageReader.%s",
                        ANDROID_MEDIA_SURFACEIMAGE_TS_JNI_ID);

    gSurfaceImageClassInfo.mDataSpace =
            env->GetFieldID(imageClazz, ANDROID_MEDIA_SURFACEIMAGE_DS_JNI_ID, "I");
    LOG_ALWAYS_FATAL_IF(gSurfaceImageClassInfo.mDataSpace == nullptr,
                        "can't find android/graphics/ImageReader.%s",
                        ANDROID_MEDIA_SURFACEIMAGE_DS_JNI_ID);

    gSurfaceImageClassInfo.mTransform =
            env->GetFieldID(imageClazz, ANDROID_MEDIA_SURFACEIMAGE_TF_JNI_ID, "I");
    LOG_ALWAYS_FATAL_IF(gSurfaceImageClassInfo.mTransform == nullptr,
                        "can't find android/graphics/ImageReader.%s",
                        ANDROID_MEDIA_SURFACEIMAGE_TF_JNI_ID);

    gSurfaceImageClassInfo.mScalingMode =
            env->GetFieldID(imageClazz, ANDROID_MEDIA_SURFACEIMAGE_SM_JNI_ID, "I");
    LOG_ALWAYS_FATAL_IF(gSurfaceImageClassInfo.mScalingMode == nullptr,
                        "can't find android/graphics/ImageReader.%s",
                        ANDROID_MEDIA_SURFACEIMAGE_SM_JNI_ID);
    env->DeleteLocalRef(imageClazz);

    gImageReaderClassInfo.mNativeContext =
            env->GetFieldID(clazz, ANDROID_MEDIA_IMAGEREADER_CTX_JNI_ID, "J");
    LOG_ALWAYS_FATAL_IF(gImageReaderClassInfo.mNativeContext == nullptr,
                        "can't find android/graphics/ImageReader.%s",
                        ANDROID_MEDIA_IMAGEREADER_CTX_JNI_ID);

    gImageReaderClassInfo.postEventFromNative =
            env->GetStaticMethodID(clazz, "postEventFromNative", "(Ljava/lang/Object;)V");
    LOG_ALWAYS_FATAL_IF(gImageReaderClassInfo.postEventFromNative == nullptr,
                        "can't find android/graphics/ImageReader.postEventFromNative");
}

void ImageReader_init(JNIEnv* env, jobject thiz, jobject weakThiz, jint width, jint height,
                      jint maxImages, jlong ndkUsage, jint nativeHalFormat, jint dataSpace) {
    status_t res;

    ALOGV("%s: width:%d, height: %d, nativeHalFormat: %d, maxImages:%d", __FUNCTION__, width,
          height, nativeHalFormat, maxImages);

    android_dataspace nativeDataspace = static_cast<android_dataspace>(dataSpace);

    jclass clazz = env->GetObjectClass(thiz);
    if (clazz == nullptr) {
        jniThrowRuntimeException(env, "Can't find android/graphics/ImageReader");
        return;
    }
    sp<JNIImageReaderContext> ctx(new JNIImageReaderContext(env, weakThiz, clazz, maxImages));
    env->DeleteLocalRef(clazz);

    sp<IGraphicBufferProducer> gbProducer;
    sp<IGraphicBufferConsumer> gbConsumer;
    BufferQueue::createBufferQueue(&gbProducer, &gbConsumer);
    sp<BufferItemConsumer> bufferConsumer;
    String8 consumerName =
            String8::format("ImageReader-%dx%df%xm%d-%d-%d", width, height, nativeHalFormat,
                            maxImages, getpid(), createProcessUniqueId());
    // The NDK's CPU and GPU usage bits are gralloc's.
    uint64_t consumerUsage = static_cast<uint64_t>(ndkUsage);

    bufferConsumer = new BufferItemConsumer(gbConsumer, consumerUsage, maxImages,
                                            /*controlledByApp*/ true);
    if (bufferConsumer == nullptr) {
        jniThrowExceptionFmt(env, "java/lang/RuntimeException",
                             "Failed to allocate native buffer consumer for hal format 0x%x and "
                             "usage 0x%" PRIx64,
                             nativeHalFormat, consumerUsage);
        return;
    }

    ctx->setBufferConsumer(bufferConsumer);
    bufferConsumer->setName(consumerName);

    ctx->setProducer(gbProducer);
    ctx->setQueueConsumer(gbConsumer);
    bufferConsumer->setFrameAvailableListener(ctx);
    ImageReader_setNativeContext(env, thiz, ctx);
    ctx->setBufferFormat(nativeHalFormat);
    ctx->setBufferDataspace(nativeDataspace);
    ctx->setBufferWidth(width);
    ctx->setBufferHeight(height);

    // Set the width/height/format/dataspace to the bufferConsumer.
    res = bufferConsumer->setDefaultBufferSize(static_cast<uint32_t>(width),
                                               static_cast<uint32_t>(height));
    if (res != OK) {
        jniThrowExceptionFmt(env, "java/lang/IllegalStateException",
                             "Failed to set buffer consumer default size (%dx%d) for format 0x%x",
                             width, height, nativeHalFormat);
        return;
    }
    res = bufferConsumer->setDefaultBufferFormat(nativeHalFormat);
    if (res != OK) {
        jniThrowExceptionFmt(env, "java/lang/IllegalStateException",
                             "Failed to set buffer consumer default format 0x%x", nativeHalFormat);
        return;
    }
    res = bufferConsumer->setDefaultBufferDataSpace(nativeDataspace);
    if (res != OK) {
        jniThrowExceptionFmt(env, "java/lang/IllegalStateException",
                             "Failed to set buffer consumer default dataSpace 0x%x",
                             static_cast<unsigned>(nativeDataspace));
    }
}

void ImageReader_close(JNIEnv* env, jobject thiz) {
    ALOGV("%s:", __FUNCTION__);

    JNIImageReaderContext* const ctx = ImageReader_getContext(env, thiz);
    if (ctx == nullptr) {
        // ImageReader is already closed.
        return;
    }

    BufferItemConsumer* consumer = ImageReader_getBufferConsumer(env, thiz);
    if (consumer != nullptr) {
        consumer->abandon();
        consumer->setFrameAvailableListener(nullptr);
    }
    ImageReader_setNativeContext(env, thiz, nullptr);
}

void ImageReader_imageRelease(JNIEnv* env, jobject thiz, jobject image) {
    ALOGV("%s:", __FUNCTION__);
    JNIImageReaderContext* ctx = ImageReader_getContext(env, thiz);
    if (ctx == nullptr) {
        ALOGW("ImageReader#close called before Image#close, consider calling Image#close first");
        return;
    }

    BufferItemConsumer* bufferConsumer = ctx->getBufferConsumer();
    BufferItem* buffer = Image_getBufferItem(env, image);
    if (buffer == nullptr) {
        // Release an already closed image is harmless.
        return;
    }

    // Host images have no planes, so they are never locked here: nothing to unlock and no
    // release fence.
    bufferConsumer->releaseBuffer(*buffer, Fence::NO_FENCE);
    Image_setBufferItem(env, image, nullptr);
    ctx->returnBufferItem(buffer);
    ALOGV("%s: Image (format: 0x%x) has been released", __FUNCTION__, ctx->getBufferFormat());
}

jint ImageReader_imageSetup(JNIEnv* env, jobject thiz, jobject image) {
    ALOGV("%s:", __FUNCTION__);
    JNIImageReaderContext* ctx = ImageReader_getContext(env, thiz);
    if (ctx == nullptr) {
        jniThrowException(env, "java/lang/IllegalStateException",
                          "ImageReader is not initialized or was already closed");
        return -1;
    }

    BufferItemConsumer* bufferConsumer = ctx->getBufferConsumer();
    BufferItem* buffer = ctx->getBufferItem();
    if (buffer == nullptr) {
        ALOGW("Unable to acquire a buffer item, very likely client tried to acquire more than"
              " maxImages buffers");
        return ACQUIRE_MAX_IMAGES;
    }

    status_t res = bufferConsumer->acquireBuffer(buffer, 0, acquireWaitsForFence());
    if (res != OK) {
        ctx->returnBufferItem(buffer);
        if (res != BufferQueue::NO_BUFFER_AVAILABLE) {
            if (res == INVALID_OPERATION) {
                // Max number of images were already acquired.
                ALOGE("%s: Max number of buffers allowed are already acquired : %s (%d)",
                      __FUNCTION__, strerror(-res), res);
                return ACQUIRE_MAX_IMAGES;
            } else {
                ALOGE("%s: Acquire image failed with some unknown error: %s (%d)", __FUNCTION__,
                      strerror(-res), res);
                jniThrowExceptionFmt(env, "java/lang/IllegalStateException",
                                     "Unknown error (%d) when we tried to acquire an image.", res);
                return ACQUIRE_NO_BUFFERS;
            }
        }
        // This isn't really an error case, as the application may acquire buffer at any time.
        return ACQUIRE_NO_BUFFERS;
    }

    // Add some extra checks for non-opaque formats.
    if (!isFormatOpaque(ctx->getBufferFormat())) {
        // Check if the left-top corner of the crop rect is origin, we currently assume this
        // point is zero, will revisit this once this assumption turns out problematic.
        Point lt = buffer->mCrop.leftTop();
        if (lt.x != 0 || lt.y != 0) {
            jniThrowExceptionFmt(env, kUnsupportedOperationException,
                                 "crop left top corner [%d, %d] need to be at origin", lt.x, lt.y);
            return -1;
        }

        // Check if the producer buffer configurations match what ImageReader configured.
        int outputWidth = getBufferWidth(buffer);
        int outputHeight = getBufferHeight(buffer);

        int imgReaderFmt = ctx->getBufferFormat();
        int imageReaderWidth = ctx->getBufferWidth();
        int imageReaderHeight = ctx->getBufferHeight();
        int bufferFormat = buffer->mGraphicBuffer->getPixelFormat();
        if ((bufferFormat != HAL_PIXEL_FORMAT_BLOB) && (imgReaderFmt != HAL_PIXEL_FORMAT_BLOB) &&
            (imageReaderWidth != outputWidth || imageReaderHeight != outputHeight)) {
            ALOGV("%s: Producer buffer size: %dx%d, doesn't match ImageReader configured size: "
                  "%dx%d",
                  __FUNCTION__, outputWidth, outputHeight, imageReaderWidth, imageReaderHeight);
        }
        if (imgReaderFmt != bufferFormat) {
            if (imgReaderFmt == HAL_PIXEL_FORMAT_YCbCr_420_888 && isPossiblyYUV(bufferFormat)) {
                // Treat formats that are compatible with flexible YUV
                // (HAL_PIXEL_FORMAT_YCbCr_420_888) as HAL_PIXEL_FORMAT_YCbCr_420_888.
                ALOGV("%s: Treat buffer format to 0x%x as HAL_PIXEL_FORMAT_YCbCr_420_888",
                      __FUNCTION__, bufferFormat);
            } else if (imgReaderFmt == HAL_PIXEL_FORMAT_YCBCR_P010 &&
                       isPossibly10BitYUV(bufferFormat)) {
                // Treat formats that are compatible with flexible 10-bit YUV
                // (HAL_PIXEL_FORMAT_YCBCR_P010) as HAL_PIXEL_FORMAT_YCBCR_P010.
                ALOGV("%s: Treat buffer format to 0x%x as HAL_PIXEL_FORMAT_YCBCR_P010",
                      __FUNCTION__, bufferFormat);
            } else if (imgReaderFmt == HAL_PIXEL_FORMAT_BLOB &&
                       bufferFormat == HAL_PIXEL_FORMAT_RGBA_8888) {
                // Using HAL_PIXEL_FORMAT_RGBA_8888 Gralloc buffers containing JPEGs to get
                // around SW write limitations for (b/17379185).
                ALOGV("%s: Receiving JPEG in HAL_PIXEL_FORMAT_RGBA_8888 buffer.", __FUNCTION__);
            } else {
                // Return the buffer to the queue. No need to provide fence, as this buffer
                // wasn't used anywhere yet.
                bufferConsumer->releaseBuffer(*buffer);
                ctx->returnBufferItem(buffer);

                // Throw exception
                ALOGE("Producer output buffer format: 0x%x, ImageReader configured format: 0x%x",
                      bufferFormat, ctx->getBufferFormat());
                jniThrowExceptionFmt(env, kUnsupportedOperationException,
                                     "The producer output buffer format 0x%x doesn't match the "
                                     "ImageReader's configured buffer format 0x%x.",
                                     bufferFormat, ctx->getBufferFormat());
                return -1;
            }
        }
    }

    // Set SurfaceImage instance member variables
    Image_setBufferItem(env, image, buffer);
    env->SetLongField(image, gSurfaceImageClassInfo.mTimestamp,
                      static_cast<jlong>(buffer->mTimestamp));
    env->SetIntField(image, gSurfaceImageClassInfo.mDataSpace,
                     static_cast<jint>(buffer->mDataSpace));
    auto transform = buffer->mTransform;
    if (buffer->mTransformToDisplayInverse) {
        transform |= NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY;
    }
    env->SetIntField(image, gSurfaceImageClassInfo.mTransform, static_cast<jint>(transform));
    env->SetIntField(image, gSurfaceImageClassInfo.mScalingMode,
                     static_cast<jint>(buffer->mScalingMode));

    return ACQUIRE_SUCCESS;
}

jobject ImageReader_getSurface(JNIEnv* env, jobject thiz) {
    ALOGV("%s: ", __FUNCTION__);

    IGraphicBufferProducer* gbp = ImageReader_getProducer(env, thiz);
    if (gbp == nullptr) {
        jniThrowRuntimeException(env, "Buffer consumer is uninitialized");
        return nullptr;
    }

    // Wrap the IGBP in a Java-language Surface.
    return android_view_Surface_createFromIGraphicBufferProducer(env, gbp);
}

jint Image_getWidth(JNIEnv* env, jobject thiz) {
    BufferItem* buffer = Image_getBufferItem(env, thiz);
    return getBufferWidth(buffer);
}

jint Image_getHeight(JNIEnv* env, jobject thiz) {
    BufferItem* buffer = Image_getBufferItem(env, thiz);
    return getBufferHeight(buffer);
}

jint Image_getFormat(JNIEnv* env, jobject thiz, jint readerFormat) {
    if (isFormatOpaque(readerFormat)) {
        // Assuming opaque reader produce opaque images.
        return static_cast<jint>(HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED);
    }
    BufferItem* buffer = Image_getBufferItem(env, thiz);
    if (buffer == nullptr) {
        jniThrowException(env, "java/lang/IllegalStateException", "Image is not initialized");
        return 0;
    }
    return mapHalFormatDataspaceToPublicFormat(buffer->mGraphicBuffer->getPixelFormat(),
                                               buffer->mDataSpace);
}

jobject Image_getHardwareBuffer(JNIEnv* env, jobject thiz) {
    BufferItem* buffer = Image_getBufferItem(env, thiz);
    AHardwareBuffer* b = buffer->mGraphicBuffer->toAHardwareBuffer();
    // don't user the public AHardwareBuffer_toHardwareBuffer() because this would force us
    // to link against libandroid.so
    return android_hardware_HardwareBuffer_createFromAHardwareBuffer(env, b);
}

#define NATIVE(name, signature, function) \
    { const_cast<char*>(name), const_cast<char*>(signature), reinterpret_cast<void*>(function) }

const JNINativeMethod gImageReaderMethods[] = {
        NATIVE("nativeClassInit", "()V", ImageReader_classInit),
        NATIVE("nativeInit", "(Ljava/lang/Object;IIIJII)V", ImageReader_init),
        NATIVE("nativeClose", "()V", ImageReader_close),
        NATIVE("nativeReleaseImage", "(Landroid/media/Image;)V", ImageReader_imageRelease),
        NATIVE("nativeImageSetup", "(Landroid/media/Image;)I", ImageReader_imageSetup),
        NATIVE("nativeGetSurface", "()Landroid/view/Surface;", ImageReader_getSurface),
};

const JNINativeMethod gImageMethods[] = {
        NATIVE("nativeGetWidth", "()I", Image_getWidth),
        NATIVE("nativeGetHeight", "()I", Image_getHeight),
        NATIVE("nativeGetFormat", "(I)I", Image_getFormat),
        NATIVE("nativeGetHardwareBuffer", "()Landroid/hardware/HardwareBuffer;",
               Image_getHardwareBuffer),
};

#undef NATIVE

}  // namespace

namespace host {

BufferQueueConsumer::SlotCounts imageReaderSlotCounts(JNIEnv* env, jobject reader) {
    JNIImageReaderContext* ctx = ImageReader_getContext(env, reader);
    if (ctx == nullptr) return BufferQueueConsumer::SlotCounts();
    // Every consumer face of the host's queues is a BufferQueueConsumer.
    return static_cast<BufferQueueConsumer*>(ctx->getQueueConsumer())->getSlotCounts();
}

int imageReaderFreeItemCount(JNIEnv* env, jobject reader) {
    JNIImageReaderContext* ctx = ImageReader_getContext(env, reader);
    return ctx == nullptr ? -1 : static_cast<int>(ctx->freeBufferItemCount());
}

}  // namespace host

int register_android_media_ImageReader(JNIEnv* env) {
    int ret1 = AndroidRuntime::registerNativeMethods(
            env, "android/media/ImageReader", gImageReaderMethods,
            sizeof(gImageReaderMethods) / sizeof(gImageReaderMethods[0]));
    int ret2 = AndroidRuntime::registerNativeMethods(
            env, "android/media/ImageReader$SurfaceImage", gImageMethods,
            sizeof(gImageMethods) / sizeof(gImageMethods[0]));
    return (ret1 || ret2);
}
