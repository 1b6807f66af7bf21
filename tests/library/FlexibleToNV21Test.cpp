// Three-plane YUV into NV21 through the shipped library and the real JVM: every layout the
// operation tells apart, with each plane and the output placed against an inaccessible page so
// that a read or write past any of them faults.

#include <android/log.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "LibraryTestSupport.h"
#include "tests/kernels/KernelTestSupport.h"
#include "testsupport/JniTest.h"

namespace nuvra::test {
namespace {

using kernels::test::GuardedBuffer;

enum class Chroma { PackedNv21, InterleavedVU, InterleavedUV, Planar };

struct Layout {
    const char* name;
    int width, height;
    int yRowStride;
    Chroma chroma;
    int uRowStride, vRowStride;  // planar: V's row stride is never consulted
    int uPixelStride, vPixelStride;
    bool bottomUp;  // planes stored last row first: negative row strides
    const char* pathLine;
};

constexpr const char* kPacked = "It's already NV21 with stride == width";
constexpr const char* kFast = "convertFromFlexibleYuv: Fast NV21->NV21";
constexpr const char* kGeneric = "convertFromFlexibleYuv: Generic->NV21";

const Layout kLayouts[] = {
        {"packed 4x4", 4, 4, 4, Chroma::PackedNv21, 4, 4, 2, 2, false, kPacked},
        {"packed odd 5x3", 5, 3, 5, Chroma::PackedNv21, 5, 5, 2, 2, false, kPacked},
        {"VU, padded luma", 4, 4, 8, Chroma::InterleavedVU, 4, 4, 2, 2, false, kFast},
        {"VU, padded rows", 6, 6, 6, Chroma::InterleavedVU, 16, 16, 2, 2, false, kFast},
        {"VU 1xN", 1, 7, 4, Chroma::InterleavedVU, 1, 1, 2, 2, false, kFast},
        {"UV (NV12)", 10, 6, 16, Chroma::InterleavedUV, 16, 16, 2, 2, false, kGeneric},
        {"planar", 8, 6, 8, Chroma::Planar, 4, 4, 1, 1, false, kGeneric},
        {"planar, V rows follow U's", 7, 5, 9, Chroma::Planar, 24, 5, 1, 1, false, kGeneric},
        {"planar, unequal pixel strides", 8, 4, 8, Chroma::Planar, 20, 20, 2, 3, false, kGeneric},
        {"planar Nx1", 9, 1, 9, Chroma::Planar, 4, 4, 1, 1, false, kGeneric},
        {"planar 1xN", 1, 5, 1, Chroma::Planar, 1, 1, 1, 1, false, kGeneric},
        {"planar bottom-up", 6, 4, 8, Chroma::Planar, 4, 4, 1, 1, true, kGeneric},
        // Wide enough for the vectorised rows of the two camera layouts.
        {"planar wide", 142, 6, 160, Chroma::Planar, 80, 96, 1, 1, false, kGeneric},
        {"UV wide bottom-up", 198, 4, 200, Chroma::InterleavedUV, 224, 224, 2, 2, true, kGeneric},
};

// A plane whose first sample (the Java buffer's address) is `rows` rows from either end of its
// memory; the last byte the layout can reach lies against the guard page.
struct Plane {
    std::unique_ptr<GuardedBuffer> memory;
    uint8_t* first = nullptr;
};

Plane makePlane(int rows, int rowStride, int rowBytes, bool bottomUp, std::mt19937& rng) {
    const size_t size = static_cast<size_t>(rows - 1) * rowStride + rowBytes;
    Plane p;
    p.memory = std::make_unique<GuardedBuffer>(
            size, bottomUp ? GuardedBuffer::Fence::Before : GuardedBuffer::Fence::After);
    for (size_t i = 0; i < size; ++i) p.memory->data()[i] = static_cast<uint8_t>(rng());
    p.first = p.memory->data() + (bottomUp ? static_cast<size_t>(rows - 1) * rowStride : 0);
    return p;
}

class FlexibleToNV21Test : public JniTest {
protected:
    jobject direct(uint8_t* p, jlong size) { return env->NewDirectByteBuffer(p, size); }
    jintArray ints(std::vector<jint> values) {
        jintArray a = env->NewIntArray(static_cast<jsize>(values.size()));
        env->SetIntArrayRegion(a, 0, static_cast<jsize>(values.size()), values.data());
        return a;
    }
    jobjectArray planeArray(std::vector<jobject> planes) {
        const jsize n = static_cast<jsize>(planes.size());
        jobjectArray a = env->NewObjectArray(n, env->FindClass("java/nio/ByteBuffer"), nullptr);
        for (jsize i = 0; i < n; ++i) env->SetObjectArrayElement(a, i, planes[i]);
        return a;
    }
};

TEST_F(FlexibleToNV21Test, EveryLayoutGivesNv21AndNamesItsPath) {
    setLogLevel("V");
    std::mt19937 rng(8);
    for (const Layout& l : kLayouts) {
        SCOPED_TRACE(l.name);
        host::clearCapturedLogs();
        const int w = l.width, h = l.height, cw = w / 2, ch = h / 2;
        const size_t outSize = static_cast<size_t>(w) * h * 3 / 2;
        const int sign = l.bottomUp ? -1 : 1;
        // V walks with its own pixel stride but U's row stride.
        const int vRow = l.uRowStride + cw * (l.vPixelStride - l.uPixelStride);
        Plane y, u, v, chroma;
        if (l.chroma == Chroma::PackedNv21) {
            y = makePlane(1, 0, static_cast<int>(outSize), false, rng);
            v.first = y.first + w * h;
            u.first = v.first + 1;
        } else {
            y = makePlane(h, l.yRowStride, w, l.bottomUp, rng);
            if (l.chroma == Chroma::Planar) {
                u = makePlane(std::max(ch, 1), l.uRowStride,
                              std::max((cw - 1) * l.uPixelStride + 1, 1), l.bottomUp, rng);
                v = makePlane(std::max(ch, 1), vRow, std::max((cw - 1) * l.vPixelStride + 1, 1),
                              l.bottomUp, rng);
            } else {
                // One buffer of pairs; the fast path reads height / 2 rows of `width` bytes.
                chroma = makePlane(std::max(ch, 1), l.uRowStride, w + 1, l.bottomUp, rng);
                const bool vFirst = l.chroma == Chroma::InterleavedVU;
                v.first = chroma.first + (vFirst ? 0 : 1);
                u.first = chroma.first + (vFirst ? 1 : 0);
            }
        }

        // What NV21 must hold, sample by sample; bytes past the chroma stay as they were.
        std::vector<uint8_t> expected(outSize, kernels::test::kCanary);
        const auto vu = expected.begin() + w * h;
        for (int r = 0; r < h; ++r)
            std::copy_n(y.first + sign * r * l.yRowStride, w, expected.begin() + r * w);
        if (l.chroma == Chroma::PackedNv21) {
            std::copy(v.first, y.first + outSize, vu);  // the whole frame in one copy
        } else if (l.chroma == Chroma::InterleavedVU) {
            std::copy_n(v.first, ch * w, vu);
        } else {
            // The pairs are written back to back: an odd width leaves no gap between rows.
            for (int r = 0; r < ch; ++r) {
                for (int c = 0; c < cw; ++c) {
                    vu[(r * cw + c) * 2] = v.first[sign * r * vRow + c * l.vPixelStride];
                    vu[(r * cw + c) * 2 + 1] =
                            u.first[sign * r * l.uRowStride + c * l.uPixelStride];
                }
            }
        }

        GuardedBuffer out(outSize);
        const size_t huge = 1 << 20;  // the operation takes the addresses only
        jobjectArray planes =
                planeArray({direct(y.first, huge), direct(u.first, huge), direct(v.first, huge)});
        ASSERT_EQ(util()->nativeConvertFlexibleToNV21(
                          env, planes, direct(out.data(), outSize), w, h,
                          ints({sign * l.yRowStride, sign * l.uRowStride, sign * l.vRowStride}),
                          ints({1, l.uPixelStride, l.vPixelStride})),
                  0);
        EXPECT_EQ(out.bytes(), expected);
        EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE),
                  (std::vector<std::string>{"nativeConvertFlexibleToNV21",
                                            "convertFromFlexibleYuv: Enter", l.pathLine,
                                            "convertFromFlexibleYuv: Exit"}));
    }
}

TEST_F(FlexibleToNV21Test, ArraysOtherThanThreeEntriesAreRefusedInOrder) {
    std::vector<uint8_t> bytes(64);
    jobject b = direct(bytes.data(), bytes.size());
    jobjectArray three = planeArray({b, b, b});
    jintArray ints3 = ints({4, 4, 4});
    struct Case {
        jobjectArray planes;
        jintArray rowStrides, pixelStrides;
    } cases[] = {
            {planeArray({b, b}), ints3, ints3},
            {three, ints({4, 4}), ints3},
            {three, ints3, ints({1, 2, 2, 2})},
    };
    for (const Case& c : cases) {
        host::clearCapturedLogs();
        EXPECT_EQ(util()->nativeConvertFlexibleToNV21(env, c.planes, b, 4, 4, c.rowStrides,
                                                      c.pixelStrides),
                  -22);
        EXPECT_EQ(allLogLines(),
                  (std::vector<std::string>{"6/NuvraSurfaceUtil: nativeConvertFlexibleToNV21: "
                                            "YUV_422_888 should have 3 planes."}));
    }
    EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](uint8_t x) { return x == 0; }));
}

}  // namespace
}  // namespace nuvra::test
