/*
 * Which SoC vendor's graphics stack the library serves, and the chroma order of the board's camera
 * YUV buffers.
 */
#pragma once

#include <cstdint>

typedef int32_t PlatformVendor;
enum : PlatformVendor {
    VENDOR_K_ORB = 1,
    VENDOR_QCOM = 2,
    VENDOR_MT = 3,
};

typedef uint8_t YuvOrder;
enum : YuvOrder {
    YUV_ORDER_NV21 = 0,  // Cr before Cb
    YUV_ORDER_NV12 = 1,  // Cb before Cr
};

class PlatformUtil {
public:
    PlatformUtil() = delete;

    // The vendor this build of the library serves (fixed when the library is built).
    static PlatformVendor getCurrentVendor();
    // NV12 on the Qualcomm boards that order camera YUV as NV12, NV21 everywhere else. Computed
    // on the first call from "ro.board.platform" and cached for the life of the process.
    static YuvOrder getCurrentYuvOrder();
};
