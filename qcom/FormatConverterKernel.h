// The OpenCL program of vantora::FormatConverter: one kernel, compressed_nv12_to_nv21, that turns
// a compressed NV12 image into NV21 Y and UV plane images. Each work item handles one 2x2 block
// of luma and its one chroma sample.
#pragma once

namespace vantora {

static const char* kernelSource = R"CLC(
__kernel void compressed_nv12_to_nv21(__read_only image2d_t input_compressed_nv12,
                                      __write_only image2d_t out_nv21_y,
                                      __write_only image2d_t out_nv21_uv,
                                      sampler_t sampler) {
    int2 coord = (int2)(2 * get_global_id(0), 2 * get_global_id(1));

    /* Luma of the 2x2 block, in gather order: (x, y+1), (x+1, y+1), (x+1, y), (x, y). */
    float4 luma = qcom_read_imagef_2x2(input_compressed_nv12, sampler,
                                       convert_float2(coord) + 0.5f, 0);
    /* (Y, Cb, Cr, 1) at the block's top-left pixel; NV21 stores Cr first. */
    float4 chroma = (float4)(read_imagef(input_compressed_nv12, sampler, coord).zy, 0.0f, 0.0f);

    write_imagef(out_nv21_y, coord, (float4)(luma.s3));
    write_imagef(out_nv21_y, coord + (int2)(1, 0), (float4)(luma.s2));
    write_imagef(out_nv21_y, coord + (int2)(1, 1), (float4)(luma.s1));
    write_imagef(out_nv21_y, coord + (int2)(0, 1), (float4)(luma.s0));
    write_imagef(out_nv21_uv, (coord + (int2)(0, 1)) / 2, chroma);
}
)CLC";

}  // namespace vantora
