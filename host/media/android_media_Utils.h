// Buffer format helpers of libmedia_jni shared by its image classes.
#pragma once

#include <gui/BufferItem.h>
#include <jni.h>
#include <system/graphics.h>
#include <ui/PixelFormat.h>

namespace android {

// Whether a buffer of this format has no CPU-readable layout (IMPLEMENTATION_DEFINED and
// RAW_OPAQUE and the like).
bool isFormatOpaque(int format);

// Whether a buffer of this format may hold 8-bit YUV 4:2:0 (which a YUV_420_888 reader takes).
bool isPossiblyYUV(PixelFormat format);

// Whether a buffer of this format may hold 10-bit YUV 4:2:0 (which a P010 reader takes).
bool isPossibly10BitYUV(PixelFormat format);

// The public (ImageFormat) format of a buffer of this format and data space.
int mapHalFormatDataspaceToPublicFormat(int format, android_dataspace dataSpace);

// The size an image reports: the crop's when set, else the buffer's; -1 without a buffer.
int getBufferWidth(BufferItem* buffer);
int getBufferHeight(BufferItem* buffer);

// Throws a new exception of `className` with `message`, as libnativehelper's jniThrowException.
void jniThrowException(JNIEnv* env, const char* className, const char* message);
void jniThrowExceptionFmt(JNIEnv* env, const char* className, const char* format, ...)
        __attribute__((format(printf, 3, 4)));
void jniThrowRuntimeException(JNIEnv* env, const char* message);

}  // namespace android
