/*
 * Pictures for the demo: a drawn test card or a PNG file as RGBA, NV21 made from RGBA, and the
 * consumer's buffers decoded back to RGB for PNG previews.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct RgbaImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;  // R, G, B, A
};

// Colour bars over a grey ramp with a circle, width and height even.
RgbaImage drawTestCard(int width, int height);
// A PNG file as RGBA; false when it cannot be read.
bool readPng(const std::string& path, RgbaImage* image);
bool writePng(const std::string& path, const RgbaImage& image);

// BT.601 full-range NV21 of an RGBA picture (straightforward floating point, for the inputs).
std::vector<uint8_t> toNv21(const RgbaImage& image);

// RGB of a YUV picture given by plane addresses, strides and chroma step.
RgbaImage fromYuv(int width, int height, const uint8_t* y, size_t yStride, const uint8_t* cb,
                  const uint8_t* cr, size_t cStride, size_t chromaStep);
// RGB of packed little-endian RGB565 rows.
RgbaImage fromRgb565(int width, int height, const uint8_t* data, size_t strideBytes);
