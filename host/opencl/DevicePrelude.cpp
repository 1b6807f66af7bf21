// Device code that the driver adds in front of every program's source: what Adreno offers
// built in and PoCL does not.

#include "Driver.h"

namespace hostcl {

const char kDevicePrelude[] = R"CLC(
/* qcom_read_imagef_2x2: the four texels of the 2x2 block whose centre is `coord` (bilinear
   footprint), component `comp` of each, in gather order (x, y+1), (x+1, y+1), (x+1, y), (x, y).
   Reads at integer coordinates: the sampler must use unnormalised coordinates. */
float hostcl_component(float4 v, int comp) {
    return comp == 0 ? v.x : comp == 1 ? v.y : comp == 2 ? v.z : v.w;
}

float4 __attribute__((overloadable)) qcom_read_imagef_2x2(read_only image2d_t image,
                                                          sampler_t sampler, float2 coord,
                                                          int comp) {
    int2 c = convert_int2(floor(coord - 0.5f));
    return (float4)(hostcl_component(read_imagef(image, sampler, c + (int2)(0, 1)), comp),
                    hostcl_component(read_imagef(image, sampler, c + (int2)(1, 1)), comp),
                    hostcl_component(read_imagef(image, sampler, c + (int2)(1, 0)), comp),
                    hostcl_component(read_imagef(image, sampler, c), comp));
}

/* write_imagef into a UV plane image: the driver backs it with 16-bit unsigned texels, one Cb/Cr
   byte pair each (first component in the low byte), since two-channel 8-bit images are not
   available underneath. Every other image is written as usual. */
void __attribute__((overloadable)) hostcl_write_imagef(write_only image2d_t image, int2 coord,
                                                       float4 color) {
    if (get_image_channel_data_type(image) == CLK_UNSIGNED_INT16) {
        uint2 b = convert_uint2_sat_rte(color.xy * 255.0f);
        write_imageui(image, coord, (uint4)(b.x | (b.y << 8), 0u, 0u, 0u));
    } else {
        write_imagef(image, coord, color);
    }
}
void __attribute__((overloadable)) hostcl_write_imagef(write_only image1d_t image, int coord,
                                                       float4 color) {
    write_imagef(image, coord, color);
}
void __attribute__((overloadable)) hostcl_write_imagef(write_only image1d_buffer_t image,
                                                       int coord, float4 color) {
    write_imagef(image, coord, color);
}
void __attribute__((overloadable)) hostcl_write_imagef(write_only image1d_array_t image,
                                                       int2 coord, float4 color) {
    write_imagef(image, coord, color);
}
void __attribute__((overloadable)) hostcl_write_imagef(write_only image2d_array_t image,
                                                       int4 coord, float4 color) {
    write_imagef(image, coord, color);
}
#undef write_imagef /* some compilers' headers define it as a macro */
#define write_imagef hostcl_write_imagef

/* The compressed NV12 decoder (tiles of 32 bytes x 8 rows, one metadata byte each: 0..7 delta
   bits after a one-byte minimum, 8 raw). Run by the driver before a kernel that reads a
   compressed image; writes (Y, Cb, Cr, 1) per pixel. */
uint hostcl_tile_byte(__global const uchar* src, uint meta, uint metaStride, uint tiles,
                      uint tileStride, uint x, uint y) {
    uint tx = x / 32, ty = y / 8;
    uint k = src[meta + ty * metaStride + tx] & 15;
    __global const uchar* slot = src + tiles + (ty * (tileStride / 32) + tx) * 256;
    uint i = (y % 8) * 32 + x % 32;
    if (k >= 8) return slot[i];
    uint bit = i * k;
    uint word = slot[1 + bit / 8] | ((uint)slot[2 + bit / 8] << 8);
    return (slot[0] + ((word >> (bit % 8)) & ((1u << k) - 1))) & 255;
}

__kernel void hostcl_decode_compressed_nv12(__global const uchar* src, write_only image2d_t dst,
                                            uint yMeta, uint yMetaStride, uint yTiles,
                                            uint uvMeta, uint uvMetaStride, uint uvTiles,
                                            uint tileStride) {
    uint x = get_global_id(0), y = get_global_id(1);
    uint luma = hostcl_tile_byte(src, yMeta, yMetaStride, yTiles, tileStride, x, y);
    uint cb = hostcl_tile_byte(src, uvMeta, uvMetaStride, uvTiles, tileStride, x & ~1u, y / 2);
    uint cr = hostcl_tile_byte(src, uvMeta, uvMetaStride, uvTiles, tileStride, x | 1u, y / 2);
    write_imagef(dst, (int2)(x, y), (float4)(luma, cb, cr, 255.0f) / 255.0f);
}
#line 1
)CLC";

}  // namespace hostcl
