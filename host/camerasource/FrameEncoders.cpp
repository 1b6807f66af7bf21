// The camera's encoders: a picture written into a buffer of each camera format.

#include <hardware/gralloc_qcom.h>
#include <hostcamera/CameraFrames.h>
#include <log/log.h>
#include <system/graphics.h>
#include <ui/HostCompressedNv12.h>
#include <ui/HostGrallocLayout.h>

#include <cstring>
#include <map>
#include <mutex>

#undef LOG_TAG
#define LOG_TAG "HostCamera"

namespace host {
namespace {

using android::BAD_VALUE;
using android::GraphicBuffer;
using android::OK;
using android::status_t;

std::mutex gEncodersMutex;
std::map<int32_t, CameraFrameEncoder>& customEncoders() {
    static std::map<int32_t, CameraFrameEncoder> encoders;
    return encoders;
}

// The picture as full-resolution luma and 2x2-averaged chroma.
struct Ycbcr420 {
    uint32_t width, height, chromaWidth, chromaHeight;
    std::vector<uint8_t> y, cb, cr;
};

Ycbcr420 toYcbcr420(const RgbPicture& p) {
    Ycbcr420 out{p.width, p.height, (p.width + 1) / 2, (p.height + 1) / 2, {}, {}, {}};
    const size_t pixels = size_t{p.width} * p.height;
    std::vector<uint8_t> cb(pixels), cr(pixels);
    out.y.resize(pixels);
    for (size_t i = 0; i < pixels; i++) {
        const uint8_t* rgb = &p.rgb[i * 3];
        rgbToYcbcr(rgb[0], rgb[1], rgb[2], &out.y[i], &cb[i], &cr[i]);
    }
    out.cb.resize(size_t{out.chromaWidth} * out.chromaHeight);
    out.cr.resize(out.cb.size());
    for (uint32_t cy = 0; cy < out.chromaHeight; cy++) {
        for (uint32_t cx = 0; cx < out.chromaWidth; cx++) {
            uint32_t sumCb = 0, sumCr = 0, n = 0;
            for (uint32_t y = 2 * cy; y < std::min(2 * cy + 2, p.height); y++) {
                for (uint32_t x = 2 * cx; x < std::min(2 * cx + 2, p.width); x++) {
                    sumCb += cb[size_t{y} * p.width + x];
                    sumCr += cr[size_t{y} * p.width + x];
                    n++;
                }
            }
            out.cb[size_t{cy} * out.chromaWidth + cx] = static_cast<uint8_t>((sumCb + n / 2) / n);
            out.cr[size_t{cy} * out.chromaWidth + cx] = static_cast<uint8_t>((sumCr + n / 2) / n);
        }
    }
    return out;
}

uint16_t widen(uint8_t value, uint32_t max) {
    return static_cast<uint16_t>((value * max + 127) / 255);
}

void put16(std::vector<uint8_t>* out, uint16_t value) {
    out->push_back(static_cast<uint8_t>(value));
    out->push_back(static_cast<uint8_t>(value >> 8));
}

// Appends one sample: a byte, or a little-endian 16-bit word.
enum class Depth { k8, k10High, k16 };
void putSample(std::vector<uint8_t>* out, uint8_t v, Depth depth) {
    switch (depth) {
        case Depth::k8:
            out->push_back(v);
            break;
        case Depth::k10High:
            put16(out, static_cast<uint16_t>(widen(v, 1023) << 6));
            break;
        case Depth::k16:
            put16(out, static_cast<uint16_t>(v * 257));
            break;
    }
}

// Writes packed planes (the buffer's planes without padding, plane after plane).
status_t writePlanes(GraphicBuffer& buffer, const std::vector<uint8_t>& packed) {
    return writeBufferContents(buffer, packed.data(), packed.size()) ? OK : BAD_VALUE;
}

status_t encodeSemiPlanar(const RgbPicture& p, GraphicBuffer& buffer, const GrallocLayout& l,
                          Depth depth) {
    const Ycbcr420 yuv = toYcbcr420(p);
    const bool cbFirst = l.cbOffset < l.crOffset;
    std::vector<uint8_t> packed;
    for (uint8_t v : yuv.y) putSample(&packed, v, depth);
    for (size_t i = 0; i < yuv.cb.size(); i++) {
        putSample(&packed, cbFirst ? yuv.cb[i] : yuv.cr[i], depth);
        putSample(&packed, cbFirst ? yuv.cr[i] : yuv.cb[i], depth);
    }
    return writePlanes(buffer, packed);
}

// Compressed NV12 (0x7FA30C06): the NV12 picture through the host's compressor.
status_t encodeCompressed(const RgbPicture& p, GraphicBuffer& buffer) {
    const Ycbcr420 yuv = toYcbcr420(p);
    std::vector<uint8_t> uv;
    for (size_t i = 0; i < yuv.cb.size(); i++) {
        uv.push_back(yuv.cb[i]);
        uv.push_back(yuv.cr[i]);
    }
    return encodeCompressedNv12(buffer, yuv.y.data(), yuv.width, uv.data(), 2 * yuv.chromaWidth)
                   ? OK
                   : BAD_VALUE;
}

status_t encodeYv12(const RgbPicture& p, GraphicBuffer& buffer, const GrallocLayout& l) {
    const Ycbcr420 yuv = toYcbcr420(p);
    std::vector<uint8_t> packed(yuv.y);
    // YV12's chroma planes hold height / 2 rows: Cr, then Cb.
    for (const std::vector<uint8_t>* plane : {&yuv.cr, &yuv.cb}) {
        for (uint32_t row = 0; row < l.planes[1].pixelRows; row++) {
            const uint8_t* from = &(*plane)[size_t{row} * yuv.chromaWidth];
            packed.insert(packed.end(), from, from + yuv.chromaWidth);
        }
    }
    return writePlanes(buffer, packed);
}

status_t encodeLuma(const RgbPicture& p, GraphicBuffer& buffer, Depth depth) {
    std::vector<uint8_t> packed;
    for (uint32_t y = 0; y < p.height; y++) {
        for (uint32_t x = 0; x < p.width; x++) {
            const uint8_t* rgb = p.pixel(x, y);
            uint8_t luma, cb, cr;
            rgbToYcbcr(rgb[0], rgb[1], rgb[2], &luma, &cb, &cr);
            putSample(&packed, luma, depth);
        }
    }
    return writePlanes(buffer, packed);
}

// The RGGB mosaic sample at (x, y), widened to `max`.
uint16_t bayerSample(const RgbPicture& p, uint32_t x, uint32_t y, uint32_t max) {
    const uint8_t* rgb = p.pixel(x, y);
    const int channel = (y % 2 == 0) ? (x % 2 == 0 ? 0 : 1) : (x % 2 == 0 ? 1 : 2);
    return widen(rgb[channel], max);
}

status_t encodeRaw(const RgbPicture& p, GraphicBuffer& buffer, int32_t format) {
    std::vector<uint8_t> packed;
    for (uint32_t y = 0; y < p.height; y++) {
        if (format == HAL_PIXEL_FORMAT_RAW16) {
            for (uint32_t x = 0; x < p.width; x++) put16(&packed, bayerSample(p, x, y, 1023));
        } else if (format == HAL_PIXEL_FORMAT_RAW10) {
            // Four pixels in five bytes: their high 8 bits, then their low 2 bits.
            for (uint32_t x = 0; x < p.width; x += 4) {
                uint8_t low = 0;
                for (uint32_t i = 0; i < 4; i++) {
                    const uint16_t s = x + i < p.width ? bayerSample(p, x + i, y, 1023) : 0;
                    packed.push_back(static_cast<uint8_t>(s >> 2));
                    low |= static_cast<uint8_t>((s & 3) << (2 * i));
                }
                packed.push_back(low);
            }
        } else {
            // Two pixels in three bytes: their high 8 bits, then their low 4 bits.
            for (uint32_t x = 0; x < p.width; x += 2) {
                const uint16_t s0 = bayerSample(p, x, y, 4095);
                const uint16_t s1 = x + 1 < p.width ? bayerSample(p, x + 1, y, 4095) : 0;
                packed.push_back(static_cast<uint8_t>(s0 >> 4));
                packed.push_back(static_cast<uint8_t>(s1 >> 4));
                packed.push_back(static_cast<uint8_t>((s0 & 15) | ((s1 & 15) << 4)));
            }
        }
    }
    return writePlanes(buffer, packed);
}

status_t encodeRgb(const RgbPicture& p, GraphicBuffer& buffer, bool alpha) {
    std::vector<uint8_t> packed;
    for (size_t i = 0; i < p.rgb.size(); i += 3) {
        packed.insert(packed.end(), &p.rgb[i], &p.rgb[i] + 3);
        if (alpha) packed.push_back(255);
    }
    return writePlanes(buffer, packed);
}

status_t encodeBlob(const RgbPicture& p, GraphicBuffer& buffer, int quality) {
    const std::vector<uint8_t> jpeg = encodeJpeg(p, quality);
    const size_t capacity = buffer.getWidth();
    if (jpeg.empty() || capacity < kJpegTrailerSize || jpeg.size() > capacity - kJpegTrailerSize) {
        ALOGE("a JPEG of %zu bytes does not fit a BLOB buffer of %zu bytes", jpeg.size(), capacity);
        return BAD_VALUE;
    }
    std::vector<uint8_t> contents(capacity, 0);
    memcpy(contents.data(), jpeg.data(), jpeg.size());
    uint8_t* trailer = &contents[capacity - kJpegTrailerSize];
    const auto size = static_cast<uint32_t>(jpeg.size());
    const uint8_t bytes[kJpegTrailerSize] = {static_cast<uint8_t>(kJpegBlobId),
                                             static_cast<uint8_t>(kJpegBlobId >> 8),
                                             0,
                                             0,
                                             static_cast<uint8_t>(size),
                                             static_cast<uint8_t>(size >> 8),
                                             static_cast<uint8_t>(size >> 16),
                                             static_cast<uint8_t>(size >> 24)};
    memcpy(trailer, bytes, kJpegTrailerSize);
    return writePlanes(buffer, contents);
}

}  // namespace

void setCameraFrameEncoder(int32_t format, CameraFrameEncoder encoder) {
    std::lock_guard<std::mutex> guard(gEncodersMutex);
    if (encoder) {
        customEncoders()[format] = std::move(encoder);
    } else {
        customEncoders().erase(format);
    }
}

status_t encodeCameraFrame(const RgbPicture& picture, GraphicBuffer& buffer, int jpegQuality) {
    const int32_t format = buffer.getPixelFormat();
    CameraFrameEncoder custom;
    {
        std::lock_guard<std::mutex> guard(gEncodersMutex);
        auto it = customEncoders().find(format);
        if (it != customEncoders().end()) custom = it->second;
    }
    if (custom) return custom(picture, buffer);

    GrallocLayout layout;
    if (!grallocLayoutOf(buffer, &layout)) return BAD_VALUE;
    if (format != HAL_PIXEL_FORMAT_BLOB &&
        (picture.width != layout.width || picture.height != layout.height)) {
        return BAD_VALUE;
    }
    switch (format) {
        case HAL_PIXEL_FORMAT_BLOB:
            return encodeBlob(picture, buffer, jpegQuality);
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12:
            return encodeRaw(picture, buffer, format);
        case HAL_PIXEL_FORMAT_Y8:
            return encodeLuma(picture, buffer, Depth::k8);
        case HAL_PIXEL_FORMAT_Y16:
            return encodeLuma(picture, buffer, Depth::k16);
        case HAL_PIXEL_FORMAT_YCBCR_P010:
            return encodeSemiPlanar(picture, buffer, layout, Depth::k10High);
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_16BIT:
            return encodeSemiPlanar(picture, buffer, layout, Depth::k16);
        case HAL_PIXEL_FORMAT_YV12:
            return encodeYv12(picture, buffer, layout);
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC:
            return encodeCompressed(picture, buffer);
        case HAL_PIXEL_FORMAT_YCRCB_420_SP:
        case PIXEL_FORMAT_YCrCb_420_SP_M:
        case HAL_PIXEL_FORMAT_YCBCR_420_888:
        case HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED:
        case HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS:
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS:
            return encodeSemiPlanar(picture, buffer, layout, Depth::k8);
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
            return encodeRgb(picture, buffer, true);
        case HAL_PIXEL_FORMAT_RGB_888:
            return encodeRgb(picture, buffer, false);
        default:
            ALOGE("no camera encoder for format %#x", static_cast<unsigned>(format));
            return BAD_VALUE;
    }
}

}  // namespace host
