// The host's compressed NV12 format: encoder (the camera HAL's side) and CPU reference decoder.

#include <hardware/gralloc_qcom.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostCompressedNv12.h>

#include <algorithm>
#include <cstring>

#include "Gralloc.h"

namespace host {
namespace {

// One plane of picture bytes and where its metadata and tiles go.
struct TiledPlane {
    const GrallocPlane* meta;
    const GrallocPlane* tiles;
    uint32_t widthBytes;
    uint32_t rows;
};

bool compressedPlanes(const GrallocLayout& layout, TiledPlane* luma, TiledPlane* chroma) {
    if (layout.format != HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC || layout.planes.size() != 4) {
        return false;
    }
    const uint32_t w = layout.width, h = layout.height;
    *luma = {&layout.planes[0], &layout.planes[1], w, h};
    *chroma = {&layout.planes[2], &layout.planes[3], (w + 1) / 2 * 2, (h + 1) / 2};
    return true;
}

void encodePlane(const TiledPlane& plane, uint8_t* base, const uint8_t* src, size_t srcStride,
                 CompressedNv12Stats* stats) {
    const uint32_t tilesPerRow = plane.tiles->strideBytes / kCompressedTileWidth;
    const uint32_t columns = (plane.widthBytes + kCompressedTileWidth - 1) / kCompressedTileWidth;
    const uint32_t rows = (plane.rows + kCompressedTileHeight - 1) / kCompressedTileHeight;
    uint8_t tile[kCompressedTileSlot];
    for (uint32_t ty = 0; ty < rows; ++ty) {
        for (uint32_t tx = 0; tx < columns; ++tx) {
            for (uint32_t r = 0; r < kCompressedTileHeight; ++r) {
                const uint32_t row = std::min(ty * kCompressedTileHeight + r, plane.rows - 1);
                for (uint32_t c = 0; c < kCompressedTileWidth; ++c) {
                    // Past the right edge repeat the last byte of the same kind (a chroma
                    // plane's last Cb or Cr).
                    uint32_t col = tx * kCompressedTileWidth + c;
                    while (col >= plane.widthBytes) col -= plane.widthBytes == 1 ? 1 : 2;
                    tile[r * kCompressedTileWidth + c] = src[row * srcStride + col];
                }
            }
            const auto [lo, hi] = std::minmax_element(tile, tile + kCompressedTileSlot);
            uint8_t k = 0;
            while (k < kCompressedTileRaw && (*hi - *lo) >> k != 0) ++k;
            uint8_t* slot = base + plane.tiles->offset +
                            (size_t{ty} * tilesPerRow + tx) * kCompressedTileSlot;
            size_t bytes = kCompressedTileSlot;
            if (k == kCompressedTileRaw) {
                memcpy(slot, tile, kCompressedTileSlot);
                ++stats->rawTiles;
            } else {
                bytes = 1 + size_t{32} * k;
                memset(slot, 0, bytes);
                slot[0] = *lo;
                for (uint32_t i = 0; i < kCompressedTileSlot && k > 0; ++i) {
                    const uint32_t bit = i * k, delta = uint32_t(tile[i] - *lo) << (bit % 8);
                    slot[1 + bit / 8] |= uint8_t(delta);
                    slot[2 + bit / 8] |= uint8_t(delta >> 8);
                }
            }
            base[plane.meta->offset + size_t{ty} * plane.meta->strideBytes + tx] = k;
            ++stats->tiles;
            stats->payloadBytes += bytes;
        }
    }
}

uint8_t decodeByte(const TiledPlane& plane, const uint8_t* base, uint32_t x, uint32_t y) {
    const uint32_t tx = x / kCompressedTileWidth, ty = y / kCompressedTileHeight;
    const uint8_t k = base[plane.meta->offset + size_t{ty} * plane.meta->strideBytes + tx] & 15;
    const uint8_t* slot = base + plane.tiles->offset +
                          (size_t{ty} * (plane.tiles->strideBytes / kCompressedTileWidth) + tx) *
                                  kCompressedTileSlot;
    const uint32_t i =
            (y % kCompressedTileHeight) * kCompressedTileWidth + x % kCompressedTileWidth;
    if (k >= kCompressedTileRaw) return slot[i];
    const uint32_t bit = i * k, word = slot[1 + bit / 8] | slot[2 + bit / 8] << 8;
    return uint8_t(slot[0] + ((word >> (bit % 8)) & ((1u << k) - 1)));
}

}  // namespace

bool encodeCompressedNv12(const GrallocLayout& layout, uint8_t* base, const uint8_t* y,
                          size_t yStride, const uint8_t* uv, size_t uvStride,
                          CompressedNv12Stats* stats) {
    TiledPlane luma, chroma;
    if (!compressedPlanes(layout, &luma, &chroma)) return false;
    CompressedNv12Stats local;
    encodePlane(luma, base, y, yStride, &local);
    encodePlane(chroma, base, uv, uvStride, &local);
    if (stats != nullptr) *stats = local;
    return true;
}

bool encodeCompressedNv12(const android::GraphicBuffer& buffer, const uint8_t* y, size_t yStride,
                          const uint8_t* uv, size_t uvStride, CompressedNv12Stats* stats) {
    const GrallocMapping* mapping = buffer.hostMapping();
    return mapping != nullptr && encodeCompressedNv12(mapping->layout(), mapping->base(), y,
                                                      yStride, uv, uvStride, stats);
}

std::vector<uint8_t> decodeCompressedNv12(const GrallocLayout& layout, const uint8_t* base) {
    TiledPlane luma, chroma;
    if (!compressedPlanes(layout, &luma, &chroma)) return {};
    std::vector<uint8_t> out;
    out.reserve(size_t{luma.widthBytes} * luma.rows + size_t{chroma.widthBytes} * chroma.rows);
    for (const TiledPlane* plane : {&luma, &chroma}) {
        for (uint32_t row = 0; row < plane->rows; ++row) {
            for (uint32_t x = 0; x < plane->widthBytes; ++x) {
                out.push_back(decodeByte(*plane, base, x, row));
            }
        }
    }
    return out;
}

}  // namespace host
