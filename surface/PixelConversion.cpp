#include "PixelConversion.h"

#include "SurfaceLog.h"
#include "kernels/PixelKernels.h"

void rgbToYuv420(const uint8_t* rgbBuf, size_t width, size_t height, uint8_t* yPlane,
                 uint8_t* crPlane, uint8_t* cbPlane, size_t chromaStep, size_t yStride,
                 size_t chromaStride) {
    nuvra::kernels::rgbaToYuv420(rgbBuf, width, height, yPlane, crPlane, cbPlane, chromaStep,
                                 yStride, chromaStride);
}

void rgbToYuv420(const uint8_t* rgbBuf, size_t width, size_t height, const android_ycbcr* ycbcr) {
    NLOGV("%s: yStride is: %zu, cStride is: %zu, cStep is: %zu", "rgbToYuv420", ycbcr->ystride,
          ycbcr->cstride, ycbcr->chroma_step);
    rgbToYuv420(rgbBuf, width, height, static_cast<uint8_t*>(ycbcr->y),
                static_cast<uint8_t*>(ycbcr->cr), static_cast<uint8_t*>(ycbcr->cb),
                ycbcr->chroma_step, ycbcr->ystride, ycbcr->cstride);
}

void YuvToRGB565(const uint8_t* yuvBuf, size_t yuvBytes, int width, int height, uint8_t* rgbBuf) {
    nuvra::kernels::nv21ToRgb565(yuvBuf, yuvBytes, width, height, rgbBuf);
}
