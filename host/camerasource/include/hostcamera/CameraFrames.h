/*
 * Pictures and how the host camera writes them into buffers of each camera format (host only).
 *
 * A camera HAL fills each buffer it queues with the sensor's picture in the stream's format. The
 * host's camera source (<hostcamera/CameraSource.h>) does the same from an RGB picture, through
 * one encoder per buffer format:
 *
 *   YCrCb_420_SP (NV21) 0x11, YCrCb_420_SP_M 0x11D, Venus NV21 0x114, Venus NV12 0x7FA30C04,
 *   YCbCr_420_888 0x23, IMPLEMENTATION_DEFINED 0x22 (the profile's chroma order), YV12
 *       8-bit YCbCr 4:2:0, full-range BT.601 (JFIF) from the picture, chroma the rounded mean of
 *       each 2x2 block (of the pixels inside the picture at odd edges)
 *   YCBCR_P010 0x36, YCbCr_420_SP_16BIT 0x127
 *       the same samples widened to 10 bits (v * 1023 / 255, rounded) in the high bits of
 *       16-bit words (P010), or to 16 bits (v * 257) for 0x127
 *   UBWC NV12 0x7FA30C06
 *       the same 8-bit samples in NV12 order, compressed (<ui/HostCompressedNv12.h>)
 *   Y8 the luma alone; Y16 the luma widened to 16 bits (v * 257)
 *   RAW16, RAW10, RAW12
 *       an RGGB Bayer mosaic (R at even rows and columns, B at odd ones) of 10-bit (RAW16,
 *       RAW10) or 12-bit (RAW12) samples (v * max / 255, rounded); RAW10 packs 4 pixels in 5
 *       bytes and RAW12 2 pixels in 3 bytes as Android defines them
 *   RGBA_8888, RGBX_8888, RGB_888 the picture itself (alpha 255)
 *   BLOB a baseline JPEG of the picture (libjpeg-turbo, 4:2:0) from the start of the buffer, the
 *       rest zero, and the camera's 8-byte trailer in the last 8 bytes: 0x00FF id, 16 zero bits,
 *       the JPEG size in bytes (32 bits), little-endian
 *
 * Every sample of the buffer's planes outside the picture rows and columns (padding) is left as
 * it was. Other formats get an encoder with setCameraFrameEncoder (for example compressed
 * formats written by a codec of their own); one set there replaces the built-in one.
 */
#pragma once

#include <ui/GraphicBuffer.h>
#include <utils/Errors.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace host {

// An RGB picture: rows of width pixels, 3 bytes (R, G, B) each, without padding.
struct RgbPicture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> rgb;

    const uint8_t* pixel(uint32_t x, uint32_t y) const { return &rgb[(size_t{y} * width + x) * 3]; }
};

// A test card of any size: eight colour bars (white, yellow, cyan, green, magenta, red, blue,
// black) over the top two thirds, a grey ramp from black to white below them.
RgbPicture makeTestCard(uint32_t width, uint32_t height);

// The picture scaled to another size by nearest neighbour (the same picture when the size
// matches).
RgbPicture scalePicture(const RgbPicture& picture, uint32_t width, uint32_t height);

// Full-range BT.601 (JFIF) luma and chroma of one RGB pixel, rounded and clamped to 0..255.
void rgbToYcbcr(uint8_t r, uint8_t g, uint8_t b, uint8_t* y, uint8_t* cb, uint8_t* cr);

// A baseline JPEG of the picture (libjpeg-turbo); empty on failure.
std::vector<uint8_t> encodeJpeg(const RgbPicture& picture, int quality);
// The picture a JPEG decodes to; an empty picture when it does not decode.
RgbPicture decodeJpeg(const uint8_t* data, size_t size);

// The camera's BLOB trailer.
constexpr size_t kJpegTrailerSize = 8;
constexpr uint16_t kJpegBlobId = 0x00FF;

// Writes `picture` (already of the buffer's size; for BLOB of any size) into `buffer`, in the
// buffer's format. Encoders write the shared memory directly (writeBufferContents or their own
// mapping), as a camera's hardware does: no lock, no recorded call.
using CameraFrameEncoder =
        std::function<android::status_t(const RgbPicture& picture, android::GraphicBuffer& buffer)>;

// Installs the encoder of one format (an empty function removes it: the built-in one, if any,
// serves again).
void setCameraFrameEncoder(int32_t format, CameraFrameEncoder encoder);

// Writes the picture with the format's encoder: OK; BAD_VALUE for a format without one or a
// picture that does not fit (a JPEG larger than the BLOB buffer less its trailer).
android::status_t encodeCameraFrame(const RgbPicture& picture, android::GraphicBuffer& buffer,
                                    int jpegQuality = 95);

}  // namespace host
