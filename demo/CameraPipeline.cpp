// The consuming half of the camera pipeline: the host camera queues the picture into an
// ImageReader of each camera format, and the library reads every image back as the app's JNI
// layer asks it to (data space, address, wrap, copy, JPEG size, flexible YUV to NV21). What the
// copies hold is written as PNG previews, and the JPEG as the .jpg file it is.

#include "CameraPipeline.h"

#include <gui/BufferItem.h>
#include <hostcamera/CameraSource.h>
#include <system/graphics.h>
#include <ui/HostGrallocLayout.h>

#include <cstdio>
#include <memory>

#include "CameraPassOn.h"
#include "CompressedFrames.h"

namespace {

struct Stream {
    const char* name;
    int halFormat;   // what the camera writes
    int javaFormat;  // the reader's android.graphics.ImageFormat
};

const Stream kStreams[] = {
        {"nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x23},
        {"ycbcr420888", HAL_PIXEL_FORMAT_YCbCr_420_888, 0x23},
        {"p010", HAL_PIXEL_FORMAT_YCBCR_P010, 0x36},
        {"raw16", HAL_PIXEL_FORMAT_RAW16, 0x20},
        {"raw10", HAL_PIXEL_FORMAT_RAW10, 0x25},
        {"raw12", HAL_PIXEL_FORMAT_RAW12, 0x26},
        {"y8", HAL_PIXEL_FORMAT_Y8, HAL_PIXEL_FORMAT_Y8},
        {"y16", HAL_PIXEL_FORMAT_Y16, HAL_PIXEL_FORMAT_Y16},
        {"private", HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED, 0x22},
        {"jpeg", HAL_PIXEL_FORMAT_BLOB, 0x100},
};

host::RgbPicture toRgb(const RgbaImage& image) {
    host::RgbPicture picture;
    picture.width = static_cast<uint32_t>(image.width);
    picture.height = static_cast<uint32_t>(image.height);
    picture.rgb.reserve(image.pixels.size() / 4 * 3);
    for (size_t i = 0; i < image.pixels.size(); i += 4) {
        picture.rgb.insert(picture.rgb.end(), &image.pixels[i], &image.pixels[i] + 3);
    }
    return picture;
}

RgbaImage fromRgbPicture(const host::RgbPicture& picture) {
    RgbaImage image;
    image.width = static_cast<int>(picture.width);
    image.height = static_cast<int>(picture.height);
    for (size_t i = 0; i < picture.rgb.size(); i += 3) {
        image.pixels.insert(image.pixels.end(), &picture.rgb[i], &picture.rgb[i] + 3);
        image.pixels.push_back(255);
    }
    return image;
}

// An 8-bit sample of a RAW row at column x: the high bits of RAW16's 10-bit words, and the
// byte that holds the high 8 bits of each pixel in RAW10 (4 pixels in 5 bytes) and RAW12 (2 in 3).
uint8_t rawSample(int format, const uint8_t* row, int x) {
    switch (format) {
        case HAL_PIXEL_FORMAT_RAW16:
            return static_cast<uint8_t>((row[2 * x] | row[2 * x + 1] << 8) >> 2);
        case HAL_PIXEL_FORMAT_RAW10:
            return row[(x / 4) * 5 + x % 4];
        default:  // RAW12
            return row[(x / 2) * 3 + x % 2];
    }
}

// The RGGB mosaic at half size, one pixel per 2x2 block.
RgbaImage fromBayer(int format, int width, int height, const uint8_t* data, size_t stride) {
    RgbaImage image;
    image.width = width / 2;
    image.height = height / 2;
    for (int y = 0; y < image.height; ++y) {
        const uint8_t* even = data + (2 * y) * stride;
        const uint8_t* odd = even + stride;
        for (int x = 0; x < image.width; ++x) {
            int g = (rawSample(format, even, 2 * x + 1) + rawSample(format, odd, 2 * x)) / 2;
            image.pixels.insert(image.pixels.end(),
                                {rawSample(format, even, 2 * x), static_cast<uint8_t>(g),
                                 rawSample(format, odd, 2 * x + 1), 255});
        }
    }
    return image;
}

// 16-bit samples (P010 planes, Y16) reduced to their high bytes, rows packed.
std::vector<uint8_t> highBytes(const uint8_t* data, size_t stride, int samplesPerRow, int rows) {
    std::vector<uint8_t> out;
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < samplesPerRow; ++x) out.push_back(data[y * stride + 2 * x + 1]);
    }
    return out;
}

// What the copy of one image shows; false when the format has no picture the demo can show.
bool preview(int format, int w, int h, const host::GrallocLayout& l, const uint8_t* copy,
             RgbaImage* out) {
    switch (format) {
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
            *out = fromYuv(w, h, copy + l.yOffset, l.yStride, copy + l.cbOffset, copy + l.crOffset,
                           l.cStride, l.chromaStep);
            return true;
        case HAL_PIXEL_FORMAT_YCBCR_P010: {
            std::vector<uint8_t> y = highBytes(copy, l.planes[0].strideBytes, w, h);
            std::vector<uint8_t> cbcr =
                    highBytes(copy + l.planes[1].offset, l.planes[1].strideBytes, w, h / 2);
            *out = fromYuv(w, h, y.data(), w, cbcr.data(), cbcr.data() + 1, w, 2);
            return true;
        }
        case HAL_PIXEL_FORMAT_Y16: {
            std::vector<uint8_t> y = highBytes(copy, l.planes[0].strideBytes, w, h);
            std::vector<uint8_t> grey(static_cast<size_t>(w) * 2, 128);
            *out = fromYuv(w, h, y.data(), w, grey.data(), grey.data() + 1, 0, 2);
            return true;
        }
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12:
            *out = fromBayer(format, w, h, copy, l.planes[0].strideBytes);
            return true;
        default:
            return false;
    }
}

// Reports and clears the Java exception that `what` left; true when there was one.
bool javaFailed(JNIEnv* env, const char* what) {
    if (!env->ExceptionCheck()) return false;
    printf("      %s threw:\n", what);
    env->ExceptionDescribe();
    return true;
}

}  // namespace

void demoCameraPipeline(JNIEnv* env, SurfaceNativeUtil* util, const RgbaImage& picture,
                        const std::string& outDir, const DemoStep& step) {
    const int w = picture.width, h = picture.height;
    printf("\n== The host camera queues the %dx%d picture into ImageReaders; the library reads "
           "the images\n",
           w, h);
    const host::RgbPicture rgb = toRgb(picture);
    jclass readerClass = env->FindClass("android/media/ImageReader");
    jclass imageClass = env->FindClass("android/media/ImageReader$SurfaceImage");
    jfieldID nativeBuffer = env->GetFieldID(imageClass, "mNativeBuffer", "J");
    jmethodID newInstance =
            env->GetStaticMethodID(readerClass, "newInstance", "(IIII)Landroid/media/ImageReader;");
    jmethodID getSurface = env->GetMethodID(readerClass, "getSurface", "()Landroid/view/Surface;");
    jmethodID acquire =
            env->GetMethodID(readerClass, "acquireNextImage", "()Landroid/media/Image;");
    jmethodID closeReader = env->GetMethodID(readerClass, "close", "()V");
    jmethodID closeImage = env->GetMethodID(imageClass, "close", "()V");

    for (const Stream& s : kStreams) {
        const bool blob = s.halFormat == HAL_PIXEL_FORMAT_BLOB;
        printf("\n  -- %s (buffer format 0x%x)\n", s.name, s.halFormat);
        env->PushLocalFrame(32);
        jobject reader =
                env->CallStaticObjectMethod(readerClass, newInstance, w, h, s.javaFormat, 2);
        if (javaFailed(env, "ImageReader.newInstance")) {
            env->PopLocalFrame(nullptr);
            continue;
        }
        host::CameraSourceConfig config;
        config.format = s.halFormat;
        config.width = blob ? static_cast<uint32_t>(w * h) : static_cast<uint32_t>(w);
        config.height = blob ? 1 : static_cast<uint32_t>(h);
        config.fenceDelayUs = 2000;  // the camera finishes 2 ms after queueing
        jobject surface = env->CallObjectMethod(reader, getSurface);
        javaFailed(env, "ImageReader.getSurface");
        std::unique_ptr<host::CameraSource> camera =
                host::CameraSource::connect(env, surface, config);
        android::status_t queued = camera ? camera->queueFrame(rgb, 1000000) : android::NO_INIT;
        jobject image = nullptr;
        if (queued == android::OK) {
            image = env->CallObjectMethod(reader, acquire);
            javaFailed(env, "ImageReader.acquireNextImage");
        }
        if (image == nullptr) {
            printf("  the camera could not deliver a frame (%d)\n", queued);
            env->CallVoidMethod(reader, closeReader);
            javaFailed(env, "ImageReader.close");
            env->PopLocalFrame(nullptr);
            continue;
        }
        auto* item = reinterpret_cast<android::BufferItem*>(env->GetLongField(image, nativeBuffer));
        host::GrallocLayout layout;
        host::grallocLayoutOf(*item->mGraphicBuffer, &layout);

        step("nativeGetDataSpaceFromImage",
             [&] { return util->nativeGetDataSpaceFromImage(env, image); });
        step("nativeGetNativeContext", [&] { return util->nativeGetNativeContext(env, image); });
        step("nativeGetBufferfromImage", [&]() -> long long {
            jobject wrapped = util->nativeGetBufferfromImage(env, image);
            if (wrapped == nullptr) return 0;
            long long capacity = env->GetDirectBufferCapacity(wrapped);
            printf("      wrapped %lld bytes\n", capacity);
            env->DeleteLocalRef(wrapped);
            return 1;
        });
        long long jpegSize = 0;
        if (blob) {
            step("nativeGetJpegSize",
                 [&] { return jpegSize = util->nativeGetJpegSize(env, image); });
        }
        // A buffer as large as the whole allocation holds any copy.
        std::vector<uint8_t> copy(layout.size);
        jobject dst = env->NewDirectByteBuffer(copy.data(), static_cast<jlong>(copy.size()));
        int copied = -1;
        step("nativePutByteBufferFromImage",
             [&] { return copied = util->nativePutByteBufferFromImage(env, image, dst); });

        RgbaImage shown;
        const std::string base = outDir + "/camera-" + s.name;
        if (blob && copied == 0 && jpegSize > 0) {
            FILE* f = fopen((base + ".jpg").c_str(), "wb");
            if (f != nullptr) {
                fwrite(copy.data(), 1, static_cast<size_t>(jpegSize), f);
                fclose(f);
                printf("      wrote %s.jpg (%lld bytes)\n", base.c_str(), jpegSize);
            }
            shown = fromRgbPicture(host::decodeJpeg(copy.data(), static_cast<size_t>(jpegSize)));
        } else if (copied == 0 && preview(s.halFormat, w, h, layout, copy.data(), &shown)) {
            // shown below
        }
        if (shown.width > 0 && writePng(base + ".png", shown)) {
            printf("      wrote %s.png\n", base.c_str());
        }

        // The copied flexible YUV once more, as three planes through the NV21 converter.
        const bool flexibleYuv = s.halFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP ||
                                 s.halFormat == HAL_PIXEL_FORMAT_YCbCr_420_888;
        if (copied == 0 && flexibleYuv) {
            jclass byteBuffer = env->FindClass("java/nio/ByteBuffer");
            jobjectArray planes = env->NewObjectArray(3, byteBuffer, nullptr);
            const size_t offsets[3] = {layout.yOffset, layout.cbOffset, layout.crOffset};
            for (int p = 0; p < 3; ++p) {
                env->SetObjectArrayElement(
                        planes, p,
                        env->NewDirectByteBuffer(copy.data() + offsets[p],
                                                 static_cast<jlong>(copy.size() - offsets[p])));
            }
            const jint rowStrides[3] = {static_cast<jint>(layout.yStride),
                                        static_cast<jint>(layout.cStride),
                                        static_cast<jint>(layout.cStride)};
            const jint pixelStrides[3] = {1, static_cast<jint>(layout.chromaStep),
                                          static_cast<jint>(layout.chromaStep)};
            jintArray rows = env->NewIntArray(3);
            jintArray pixels = env->NewIntArray(3);
            env->SetIntArrayRegion(rows, 0, 3, rowStrides);
            env->SetIntArrayRegion(pixels, 0, 3, pixelStrides);
            std::vector<uint8_t> nv21(static_cast<size_t>(w) * h * 3 / 2);
            jobject out = env->NewDirectByteBuffer(nv21.data(), static_cast<jlong>(nv21.size()));
            step("nativeConvertFlexibleToNV21", [&] {
                return util->nativeConvertFlexibleToNV21(env, planes, out, w, h, rows, pixels);
            });
            const uint8_t* vu = nv21.data() + static_cast<size_t>(w) * h;
            if (writePng(base + "-flex-nv21.png",
                         fromYuv(w, h, nv21.data(), w, vu + 1, vu, w, 2))) {
                printf("      wrote %s-flex-nv21.png\n", base.c_str());
            }
        }

        if (s.halFormat == HAL_PIXEL_FORMAT_YCbCr_420_888) {
            demoPassOnCameraImage(env, util, image, w, h, outDir, step);
        }
        env->CallVoidMethod(image, closeImage);
        javaFailed(env, "Image.close");
        camera.reset();
        env->CallVoidMethod(reader, closeReader);
        javaFailed(env, "ImageReader.close");
        env->PopLocalFrame(nullptr);
    }
    demoCompressedFrames(env, util, rgb, outDir, step);
}
