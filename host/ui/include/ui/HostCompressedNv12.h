/*
 * Contents of the host's compressed NV12 buffers (HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC,
 * 0x7FA30C06): a lossless tiled compression in the spirit of Qualcomm's UBWC.
 *
 * Both planes (luma bytes, and the interleaved Cb/Cr bytes of half height) are cut into tiles of
 * 32 bytes x 8 rows. Each tile has one metadata byte in its plane's metadata plane (row
 * ty, column tx) and a 256-byte slot in its plane's tile plane (slot ty * stride / 32 + tx).
 * The metadata's low four bits give the tile's coding:
 *   0..7  delta coding with k bits: the slot starts with the tile's minimum byte, followed by the
 *         256 differences from that minimum, k bits each, least significant bit first (1 + 32k
 *         bytes; k = 0 is a flat tile of one byte);
 *   8     raw: the 256 bytes in row order.
 * Tiles are filled row by row; picture bytes beyond the right or bottom edge repeat the edge.
 *
 * The camera HAL's part (producing a frame) is encodeCompressedNv12; the host OpenCL driver
 * decodes on the device, and decodeCompressedNv12 is the CPU reference for tests and tools.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <ui/HostGrallocLayout.h>

#include <vector>

namespace android {
class GraphicBuffer;
}

namespace host {

constexpr uint32_t kCompressedTileWidth = 32;  // bytes
constexpr uint32_t kCompressedTileHeight = 8;  // rows
constexpr uint32_t kCompressedTileSlot = 256;  // bytes per tile slot
constexpr uint8_t kCompressedTileRaw = 8;      // metadata coding of a raw tile

struct CompressedNv12Stats {
    size_t tiles = 0;         // tiles holding picture bytes, both planes
    size_t rawTiles = 0;      // of those, stored raw
    size_t payloadBytes = 0;  // bytes of tile payload written
};

// Encodes an NV12 picture of the layout's width and height into the memory of a compressed NV12
// buffer (`base`, laid out as `layout`, format 0x7FA30C06). `y` has rows of `yStride` bytes; `uv`
// has (height + 1) / 2 rows of `uvStride` bytes, each (width + 1) / 2 Cb, Cr pairs. False when
// the layout is not a compressed NV12 layout.
bool encodeCompressedNv12(const GrallocLayout& layout, uint8_t* base, const uint8_t* y,
                          size_t yStride, const uint8_t* uv, size_t uvStride,
                          CompressedNv12Stats* stats = nullptr);

// The same into an allocated buffer's memory (no lock taken, no call recorded).
bool encodeCompressedNv12(const android::GraphicBuffer& buffer, const uint8_t* y, size_t yStride,
                          const uint8_t* uv, size_t uvStride, CompressedNv12Stats* stats = nullptr);

// Decodes a compressed NV12 buffer into packed NV12: width x height luma bytes, then
// (height + 1) / 2 rows of 2 x ((width + 1) / 2) Cb, Cr bytes. Empty for a layout that is not
// compressed NV12.
std::vector<uint8_t> decodeCompressedNv12(const GrallocLayout& layout, const uint8_t* base);

}  // namespace host
