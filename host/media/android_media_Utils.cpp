// Buffer format helpers of libmedia_jni.

#define LOG_TAG "AndroidMediaUtils"

#include "android_media_Utils.h"

#include <log/log.h>

#include <cstdarg>
#include <cstdio>

namespace android {
namespace {

// Public formats that differ from the buffer format (android.graphics.ImageFormat).
constexpr int kPublicJpeg = 0x100;
constexpr int kPublicDepthPointCloud = 0x101;
constexpr int kPublicDepth16 = 0x44363159;
constexpr int kPublicRawDepth = 0x1002;
constexpr int kPublicDepthJpeg = 0x69656963;
constexpr int kPublicHeic = 0x48454946;

}  // namespace

bool isFormatOpaque(int format) {
    // This is the only opaque format exposed in the ImageFormat public API. Note that we do not
    // include HAL_PIXEL_FORMAT_RAW_OPAQUE, as the buffer is still CPU-readable.
    return format == HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED;
}

bool isPossiblyYUV(PixelFormat format) {
    switch (static_cast<int>(format)) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_RGB_888:
        case HAL_PIXEL_FORMAT_RGB_565:
        case HAL_PIXEL_FORMAT_BGRA_8888:
        case HAL_PIXEL_FORMAT_Y8:
        case HAL_PIXEL_FORMAT_Y16:
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW_OPAQUE:
        case HAL_PIXEL_FORMAT_BLOB:
        case HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED:
        case HAL_PIXEL_FORMAT_YCBCR_P010:
            return false;

        case HAL_PIXEL_FORMAT_YV12:
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        default:
            return true;
    }
}

bool isPossibly10BitYUV(PixelFormat format) {
    switch (static_cast<int>(format)) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_RGB_888:
        case HAL_PIXEL_FORMAT_RGB_565:
        case HAL_PIXEL_FORMAT_BGRA_8888:
        case HAL_PIXEL_FORMAT_Y8:
        case HAL_PIXEL_FORMAT_Y16:
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW_OPAQUE:
        case HAL_PIXEL_FORMAT_BLOB:
        case HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED:
        case HAL_PIXEL_FORMAT_YV12:
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
            return false;

        case HAL_PIXEL_FORMAT_YCBCR_P010:
        default:
            return true;
    }
}

int mapHalFormatDataspaceToPublicFormat(int format, android_dataspace dataSpace) {
    switch (format) {
        case HAL_PIXEL_FORMAT_BLOB:
            switch (static_cast<int>(dataSpace)) {
                case HAL_DATASPACE_DEPTH:
                    return kPublicDepthPointCloud;
                case HAL_DATASPACE_DYNAMIC_DEPTH:
                    return kPublicDepthJpeg;
                case HAL_DATASPACE_HEIF:
                    return kPublicHeic;
                default:
                    return kPublicJpeg;
            }
        case HAL_PIXEL_FORMAT_Y16:
            return dataSpace == HAL_DATASPACE_DEPTH ? kPublicDepth16 : format;
        case HAL_PIXEL_FORMAT_RAW16:
            return dataSpace == HAL_DATASPACE_DEPTH ? kPublicRawDepth : format;
        default:
            // Every other buffer format is its own public format.
            return format;
    }
}

int getBufferWidth(BufferItem* buffer) {
    if (buffer == nullptr) return -1;
    if (!buffer->mCrop.isEmpty()) return buffer->mCrop.getWidth();
    return static_cast<int>(buffer->mGraphicBuffer->getWidth());
}

int getBufferHeight(BufferItem* buffer) {
    if (buffer == nullptr) return -1;
    if (!buffer->mCrop.isEmpty()) return buffer->mCrop.getHeight();
    return static_cast<int>(buffer->mGraphicBuffer->getHeight());
}

void jniThrowException(JNIEnv* env, const char* className, const char* message) {
    jclass exceptionClass = env->FindClass(className);
    if (exceptionClass == nullptr) {
        ALOGE("Unable to find exception class %s", className);
        return;
    }
    env->ThrowNew(exceptionClass, message);
    env->DeleteLocalRef(exceptionClass);
}

void jniThrowExceptionFmt(JNIEnv* env, const char* className, const char* format, ...) {
    char message[512];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    jniThrowException(env, className, message);
}

void jniThrowRuntimeException(JNIEnv* env, const char* message) {
    jniThrowException(env, "java/lang/RuntimeException", message);
}

}  // namespace android
