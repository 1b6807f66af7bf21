// libui on the host: gralloc layouts per profile, handles, memory, guard pages; GraphicBuffer locks
// (gralloc 4 rules), faults, fences, reallocation, AHardwareBuffer; the mapper's plane layouts.

#include <android/hardware_buffer.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <hardware/gralloc_qcom.h>
#include <hostcontrol/FaultInjection.h>
#include <hostcontrol/LogCapture.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <ui/HostGrallocGuard.h>
#include <ui/HostGrallocLayout.h>
#include <ui/HostPlaneLayouts.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <tuple>
#include <vector>

#include "ui_test_support.h"

using namespace android;

namespace {

using aidl::android::hardware::graphics::common::PlaneLayoutComponent;
using Type = aidl::android::hardware::graphics::common::PlaneLayoutComponentType;
using android::ui::PlaneLayout;
using host::planeLayoutComponent;
using namespace hosttest;
using Components = std::vector<PlaneLayoutComponent>;

constexpr uint64_t kRead = GRALLOC_USAGE_SW_READ_OFTEN, kWrite = GRALLOC_USAGE_SW_WRITE_OFTEN;
constexpr uint64_t kCpuUsage = kRead | kWrite;

// The mapper's error lines for unlocks of buffers that were not locked.
size_t mapperUnlockErrors() {
    const std::vector<host::LogLine> lines = host::capturedLogs();
    return std::count_if(lines.begin(), lines.end(), [](const host::LogLine& line) {
        return line.tag == "Gralloc4" && line.priority == ANDROID_LOG_ERROR &&
               line.text.find(") failed with 2") != std::string::npos;
    });
}

// lockYCbCr's answer: 8-bit Y, Cb and Cr; Y alone; no planes (still locked); BAD_VALUE.
enum class Ycbcr { kPlanes, kLumaOnly, kNone, kRefused };

// What a buffer of a format must look like, worked out from the format's rules alone.
struct Expected {
    uint32_t stride = 0;                              // GraphicBuffer::getStride()
    int32_t bytesPerPixel = -1, bytesPerStride = -1;  // what lock reports
    Ycbcr ycbcr = Ycbcr::kNone;
    size_t cb = 0, cr = 0;  // chroma offsets from the luma
    uint32_t cStride = 0, step = 0, chromaRows = 0;
};

// A YUV layout: no bytes per pixel nor per stride from lock.
Expected yuv(uint32_t stride, Ycbcr ycbcr, size_t cb, size_t cr, uint32_t cStride, uint32_t step,
             uint32_t chromaRows) {
    return Expected{stride, -1, -1, ycbcr, cb, cr, cStride, step, chromaRows};
}

Expected expectedLayout(int32_t format, uint32_t w, uint32_t h, bool padded, bool nv12) {
    // One plane of `bytes`-byte samples; phones pad rows to 64 pixels.
    auto singlePlane = [&](int32_t bytes, uint32_t align, Ycbcr ycbcr = Ycbcr::kNone) {
        const uint32_t stride = alignTo(w, padded ? 64 : align);
        return Expected{stride, bytes, static_cast<int32_t>(stride) * bytes, ycbcr};
    };
    // Interleaved chroma right after `lumaRows` rows, the first of each pair at its start.
    auto semiPlanar = [&](uint32_t stride, uint32_t lumaRows, bool cbFirst) {
        const size_t chroma = size_t{stride} * lumaRows;
        return yuv(stride, Ycbcr::kPlanes, chroma + !cbFirst, chroma + cbFirst, stride, 2,
                   (h + 1) / 2);
    };
    const uint32_t evenOr64 = padded ? alignTo(w, 64) : alignTo(w, 2);
    switch (format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_BGRA_8888:
        case HAL_PIXEL_FORMAT_RGBA_1010102:
            return singlePlane(4, 1);
        case HAL_PIXEL_FORMAT_RGBA_FP16:
            return singlePlane(8, 1);
        case HAL_PIXEL_FORMAT_RGB_888:
            return singlePlane(3, 1);
        case HAL_PIXEL_FORMAT_RGB_565:
        case HAL_PIXEL_FORMAT_RAW_OPAQUE:
            return singlePlane(2, 1);
        case HAL_PIXEL_FORMAT_RAW16:
            return singlePlane(2, 16);
        case HAL_PIXEL_FORMAT_Y16:
            return singlePlane(2, 16, Ycbcr::kRefused);
        case HAL_PIXEL_FORMAT_Y8:
            return singlePlane(1, 16, Ycbcr::kLumaOnly);
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12: {
            // Four pixels in five bytes, or two in three: no bytes per pixel.
            const uint32_t row =
                    format == HAL_PIXEL_FORMAT_RAW10 ? (w + 3) / 4 * 5 : (w + 1) / 2 * 3;
            const uint32_t stride = padded ? alignTo(row, 64) : row;
            return Expected{stride, -1, static_cast<int32_t>(stride)};
        }
        case HAL_PIXEL_FORMAT_BLOB:
            return Expected{w, 1, static_cast<int32_t>(w)};
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case PIXEL_FORMAT_YCrCb_420_SP_M:
            return semiPlanar(evenOr64, h, false);
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
        case HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED:
            return semiPlanar(evenOr64, padded ? alignTo(h, 64) : h, nv12);
        case HAL_PIXEL_FORMAT_YCBCR_P010:
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_16BIT: {
            // 16-bit samples, Cb first: lockYCbCr refuses them; the mapper's planes (in bytes).
            const size_t cb = size_t{evenOr64} * 2 * (padded ? alignTo(h, 16) : h);
            return yuv(evenOr64, Ycbcr::kRefused, cb, cb + 2, evenOr64 * 2, 4, (h + 1) / 2);
        }
        case HAL_PIXEL_FORMAT_YV12: {
            // Cr plane, then Cb; Android's YV12 has even heights.
            const uint32_t stride = alignTo(w, padded ? 64 : 16), cStride = alignTo(stride / 2, 16);
            const size_t cr = size_t{stride} * h;
            return yuv(stride, Ycbcr::kPlanes, cr + size_t{cStride} * (h / 2), cr, cStride, 1,
                       h / 2);
        }
        case HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS:
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS:
            return semiPlanar(alignTo(w, 128), alignTo(h, 32),
                              format == HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS);
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC:
            return Expected{alignTo(w, 128), -1, -1, Ycbcr::kRefused};
    }
    return Expected{};  // no rules: the test stops at the stride
}

// Whether the process may read the byte at p: a pipe write copies from it or fails with EFAULT.
bool readable(const uint8_t* p) {
    int fds[2];
    if (pipe(fds) != 0) return false;
    const bool ok = write(fds[1], p, 1) == 1;
    close(fds[0]);
    close(fds[1]);
    return ok;
}

// The address of a component's first sample by the mapper's layouts (null if none), and its plane.
const uint8_t* componentAddress(const std::vector<PlaneLayout>& layouts, Type type,
                                const uint8_t* base, const PlaneLayout** plane) {
    for (const PlaneLayout& layout : layouts) {
        for (const PlaneLayoutComponent& c : layout.components) {
            if (c.type.value != static_cast<int64_t>(type)) continue;
            EXPECT_EQ(c.type.name, "android.hardware.graphics.common.PlaneLayoutComponentType");
            *plane = &layout;
            return base + layout.offsetInBytes + c.offsetInBits / 8;
        }
    }
    return nullptr;
}

// Every format, size and profile: stride, guard page, lock, lockYCbCr and the mapper's planes (the
// same memory, inside the allocation), fixed at allocation: checked under the opposite profile.
TEST(HostGralloc, LayoutsFollowEachFormatsRulesInEveryProfile) {
    ASSERT_TRUE(host::grallocGuardMode());  // the test suites run in guard mode
    host::setLogEcho(false);
    const std::pair<uint32_t, uint32_t> sizes[] = {
            {640, 480}, {100, 30}, {1000, 750}, {33, 17}, {2, 2}};
    const std::vector<host::DeviceProfile> profiles = host::deviceProfiles();
    for (const host::DeviceProfile& profile : profiles) {
        const auto other = std::find_if(profiles.begin(), profiles.end(), [&](const auto& p) {
            return p.paddedLayouts != profile.paddedLayouts &&
                   p.flexYuvIsNv12 != profile.flexYuvIsNv12;
        });
        ASSERT_NE(profiles.end(), other);
        ScopedProfile scoped(profile.name);
        for (int32_t format : host::grallocFormats()) {
            for (auto [w, h] : sizes) {
                if (format == HAL_PIXEL_FORMAT_BLOB) h = 1;
                SCOPED_TRACE(profile.name + " " + host::grallocFormatName(format) + " " +
                             std::to_string(w) + "x" + std::to_string(h));
                const Expected e =
                        expectedLayout(format, w, h, profile.paddedLayouts, profile.flexYuvIsNv12);
                sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, format, 1, kCpuUsage);
                ScopedProfile checkedUnder(other->name);
                host::GrallocLayout layout;
                ASSERT_TRUE(host::grallocLayoutOf(*buffer, &layout));  // allocated
                ASSERT_EQ(e.stride, buffer->getStride());  // 0: a format without rules here

                void* base = nullptr;
                int32_t bytesPerPixel = 0, bytesPerStride = 0;
                ASSERT_EQ(OK, buffer->lock(kWrite, &base, &bytesPerPixel, &bytesPerStride));
                ASSERT_EQ(OK, buffer->unlock());
                // Guard mode: an inaccessible page right after the buffer's last byte.
                auto* y = static_cast<uint8_t*>(base);
                EXPECT_TRUE(readable(y + layout.size - 1));
                EXPECT_FALSE(readable(y + layout.size));
                EXPECT_EQ(e.bytesPerPixel, bytesPerPixel);
                EXPECT_EQ(e.bytesPerStride, bytesPerStride);

                android_ycbcr ycbcr;
                memset(&ycbcr, 0xA5, sizeof(ycbcr));
                host::clearCapturedLogs();
                const bool refused = e.ycbcr == Ycbcr::kRefused;
                EXPECT_EQ(refused ? BAD_VALUE : OK, buffer->lockYCbCr(kWrite, &ycbcr));
                // A refusal unlocks again; any other answer leaves the buffer locked.
                EXPECT_EQ(OK, buffer->unlock());
                EXPECT_EQ(refused ? 1u : 0u, mapperUnlockErrors());
                const bool planes = e.ycbcr == Ycbcr::kPlanes, none = e.ycbcr == Ycbcr::kNone;
                if (!refused) {
                    const void *cb = planes ? y + e.cb : nullptr, *cr = planes ? y + e.cr : nullptr;
                    EXPECT_EQ(std::make_tuple(none ? nullptr : y, none ? 0u : e.stride, cb, cr,
                                              e.cStride, e.step),
                              std::make_tuple(ycbcr.y, ycbcr.ystride, ycbcr.cb, ycbcr.cr,
                                              ycbcr.cstride, ycbcr.chroma_step));
                }

                std::vector<PlaneLayout> planeLayouts;
                ASSERT_EQ(OK, GraphicBufferMapper::get().getPlaneLayouts(buffer->handle,
                                                                         &planeLayouts));
                ASSERT_FALSE(planeLayouts.empty());
                for (const PlaneLayout& l : planeLayouts) {
                    EXPECT_GE(l.offsetInBytes, 0);
                    EXPECT_LE(static_cast<size_t>(l.offsetInBytes + l.totalSizeInBytes),
                              layout.size);
                    EXPECT_GE(l.totalSizeInBytes, l.strideInBytes * l.heightInSamples);
                }
                const bool p010 = format == HAL_PIXEL_FORMAT_YCBCR_P010;
                if (planes || p010) {
                    const PlaneLayout *yPlane = nullptr, *cbPlane = nullptr, *crPlane = nullptr;
                    EXPECT_EQ(y, componentAddress(planeLayouts, Type::Y, y, &yPlane));
                    EXPECT_EQ(y + e.cb, componentAddress(planeLayouts, Type::CB, y, &cbPlane));
                    EXPECT_EQ(y + e.cr, componentAddress(planeLayouts, Type::CR, y, &crPlane));
                    ASSERT_TRUE(yPlane && cbPlane && crPlane);
                    EXPECT_EQ(p010 ? 16 : 8, yPlane->sampleIncrementInBits);
                    EXPECT_EQ(p010 ? e.cStride : e.stride, yPlane->strideInBytes);
                    EXPECT_EQ(e.cStride, cbPlane->strideInBytes);
                    EXPECT_EQ(e.cStride, crPlane->strideInBytes);
                    EXPECT_EQ(8 * e.step, cbPlane->sampleIncrementInBits);
                    EXPECT_EQ(2, cbPlane->horizontalSubsampling);
                    EXPECT_EQ((w + 1) / 2, cbPlane->widthInSamples);
                    EXPECT_EQ(e.chromaRows, cbPlane->heightInSamples);
                    if (p010) {  // 10-bit samples in the high bits of 16-bit words
                        ASSERT_EQ(2u, planeLayouts.size());
                        EXPECT_EQ(Components{planeLayoutComponent(Type::Y, 6, 10)},
                                  yPlane->components);
                        EXPECT_EQ((Components{planeLayoutComponent(Type::CB, 6, 10),
                                              planeLayoutComponent(Type::CR, 22, 10)}),
                                  cbPlane->components);
                    }
                } else if (e.bytesPerStride > 0) {  // one plane, as many bytes as the rows
                    EXPECT_EQ(static_cast<size_t>(e.bytesPerStride) * h, layout.size);
                    ASSERT_EQ(1u, planeLayouts.size());
                    EXPECT_EQ(0, planeLayouts[0].offsetInBytes);
                    EXPECT_EQ(e.bytesPerStride, planeLayouts[0].strideInBytes);
                    EXPECT_EQ(w, planeLayouts[0].widthInSamples);
                    if (e.bytesPerPixel > 0 && planeLayouts[0].sampleIncrementInBits != 0) {
                        EXPECT_EQ(8 * e.bytesPerPixel, planeLayouts[0].sampleIncrementInBits);
                    }
                }
            }
        }
    }
}

TEST(HostGralloc, RefusesSizesAndFormatsItCannotAllocate) {
    auto allocationStatus = [](uint32_t w, uint32_t h, int32_t format) {
        sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, format, 1, kCpuUsage);
        EXPECT_EQ(buffer->initCheck() == OK, buffer->handle != nullptr);
        return buffer->initCheck();
    };
    EXPECT_EQ(BAD_VALUE, allocationStatus(0, 10, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(BAD_VALUE, allocationStatus(10, 0, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(BAD_VALUE, allocationStatus(10, 10, 0x999));
    EXPECT_EQ(BAD_VALUE, allocationStatus(70000, 70000, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(BAD_VALUE, allocationStatus(1008, 2, HAL_PIXEL_FORMAT_BLOB));  // height 1

    host::resetFaultsAndCalls();
    host::injectFault("buffer.allocate", NO_MEMORY);
    EXPECT_EQ(NO_MEMORY, allocationStatus(16, 16, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(OK, allocationStatus(16, 16, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(0u, host::callCount("buffer.allocate"));  // not a call of its own
}

// A buffer is a sealed memfd; a clone of its handle maps the same memory, with its own guard page.
TEST(HostGralloc, HandleCarriesASealedMemfdThatClonesShare) {
    ScopedProfile phone("phone-nv21");
    const uint32_t w = 100, h = 10;
    sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, kCpuUsage);
    ASSERT_EQ(1, buffer->handle->numFds);
    EXPECT_EQ(1u, buffer->getFdCount());
    const int fd = buffer->handle->data[0];
    const std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd));
    EXPECT_EQ(0u, path.rfind("/memfd:gralloc-", 0)) << path;
    // Sealed at its size; in guard mode the buffer ends where the file's last page does.
    EXPECT_NE(0, ftruncate(fd, 1));
    EXPECT_EQ(4096, lseek(fd, 0, SEEK_END));

    auto cloneOf = [&](const native_handle_t* handle, uint32_t cloneW) {
        return sp<GraphicBuffer>(new GraphicBuffer(handle, GraphicBuffer::CLONE_HANDLE, cloneW, h,
                                                   HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, kCpuUsage,
                                                   buffer->getStride()));
    };
    sp<GraphicBuffer> clone = cloneOf(buffer->handle, w);
    host::GrallocLayout layout, fromHandle;
    ASSERT_TRUE(host::grallocLayoutOf(*buffer, &layout));
    ASSERT_TRUE(host::grallocLayoutOf(*clone, &fromHandle));  // the handle alone describes it
    EXPECT_NE(fd, clone->handle->data[0]);
    ASSERT_EQ(layout.planes.size(), fromHandle.planes.size());
    EXPECT_EQ(layout.planes[1].offset, fromHandle.planes[1].offset);
    EXPECT_EQ(layout.size, fromHandle.size);

    // Every byte written, padding included, reads back through the clone's own mapping.
    std::vector<uint8_t> memory(layout.size);
    for (size_t i = 0; i < memory.size(); ++i) memory[i] = i * 13 + 1;
    void* data = nullptr;
    ASSERT_EQ(OK, buffer->lock(kWrite, &data));
    memcpy(data, memory.data(), memory.size());
    ASSERT_EQ(OK, buffer->unlock());
    EXPECT_EQ(memory, host::readBufferMemory(*clone));
    void* cloneData = nullptr;
    ASSERT_EQ(OK, clone->lock(kRead, &cloneData));
    EXPECT_NE(data, cloneData);
    EXPECT_TRUE(readable(static_cast<uint8_t*>(cloneData) + layout.size - 1));
    EXPECT_FALSE(readable(static_cast<uint8_t*>(cloneData) + layout.size));
    ASSERT_EQ(OK, clone->unlock());
    EXPECT_TRUE(host::readBufferMemory(*sp<GraphicBuffer>(new GraphicBuffer())).empty());

    // Contents go in and come back without the padding.
    std::vector<uint8_t> nv21(w * h * 3 / 2);
    for (size_t i = 0; i < nv21.size(); i++) nv21[i] = static_cast<uint8_t>(i * 7 + 3);
    ASSERT_TRUE(host::writeBufferContents(*buffer, nv21.data(), nv21.size()));
    EXPECT_FALSE(host::writeBufferContents(*buffer, nv21.data(), nv21.size() - 1));
    EXPECT_EQ(nv21, host::readBufferContents(*clone));

    // A description that does not match the handle is refused, as is a foreign handle.
    sp<GraphicBuffer> mismatched = cloneOf(buffer->handle, 96);
    EXPECT_EQ(BAD_VALUE, mismatched->initCheck());
    EXPECT_EQ(nullptr, mismatched->handle);
    native_handle_t* foreign = native_handle_create(1, 2);
    foreign->data[0] = dup(STDERR_FILENO);
    EXPECT_EQ(BAD_VALUE, cloneOf(foreign, w)->initCheck());
    native_handle_close(foreign);
    native_handle_delete(foreign);
}

class GraphicBufferTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::setLogEcho(false);
        host::resetFaultsAndCalls();
    }
    void TearDown() override { host::resetFaultsAndCalls(); }

    static sp<GraphicBuffer> make(int32_t format, uint64_t usage = kCpuUsage, uint32_t w = 64,
                                  uint32_t h = 16) {
        sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, format, 1, usage);
        EXPECT_EQ(OK, buffer->initCheck());
        return buffer;
    }
};

TEST_F(GraphicBufferTest, CpuLocksMustFitTheAllocationUsage) {
    const struct {
        uint64_t allocated, locked;
        bool allowed;
    } cases[] = {
            {kRead | kWrite, kRead, true},
            {kRead | kWrite, kRead | kWrite, true},
            {kRead, kRead, true},
            {GRALLOC_USAGE_SW_READ_RARELY, kRead, true},  // any CPU-read bit allows reading
            {GRALLOC_USAGE_SW_WRITE_RARELY | GRALLOC_USAGE_HW_TEXTURE, kWrite, true},
            {kRead, kWrite, false},
            {kRead, kRead | kWrite, false},
            {kWrite, kRead, false},
            {GRALLOC_USAGE_HW_TEXTURE, kRead, false},
            {kRead | kWrite, GRALLOC_USAGE_HW_TEXTURE, false},  // no CPU access asked for
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << c.allocated << " locked " << c.locked);
        sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_YCrCb_420_SP, c.allocated);
        const int expected = c.allowed ? OK : BAD_VALUE;
        void* data = nullptr;
        android_ycbcr ycbcr{};
        EXPECT_EQ(expected, buffer->lock(c.locked, &data));
        EXPECT_EQ(expected, buffer->lockYCbCr(c.locked, &ycbcr));
        EXPECT_EQ(expected, buffer->lockAsync(c.locked, &data, -1));
        host::clearCapturedLogs();
        for (int i = 0; i < 3; ++i) buffer->unlock();
        EXPECT_EQ(c.allowed ? 0u : 3u, mapperUnlockErrors());
    }
}

TEST_F(GraphicBufferTest, LockArgumentsAreRefusedAndUnlockingNothingOnlyLogs) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_RGBA_8888);
    void* data = nullptr;
    EXPECT_EQ(BAD_VALUE, buffer->lock(kRead, Rect(0, 0, 65, 16), &data));
    EXPECT_EQ(BAD_VALUE, buffer->lock(kRead, Rect(-1, 0, 10, 10), &data));

    // Locks nest. One unlock too many logs the mapper's error and answers NO_ERROR (as Android).
    ASSERT_EQ(OK, buffer->lock(kRead, Rect(8, 2, 16, 4), &data));
    void* again = nullptr;
    ASSERT_EQ(OK, buffer->lock(kRead, &again));
    EXPECT_EQ(data, again);  // the base address, whatever the rectangle
    host::clearCapturedLogs();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(OK, buffer->unlock());
    EXPECT_EQ(0u, mapperUnlockErrors());
    EXPECT_EQ(OK, buffer->unlock());
    int fence = 0;
    EXPECT_EQ(OK, buffer->unlockAsync(&fence));
    EXPECT_EQ(-1, fence);
    EXPECT_EQ(2u, mapperUnlockErrors());
    // ...and the buffer is no more locked than before: one lock needs one unlock.
    ASSERT_EQ(OK, buffer->lock(kRead, &data));
    EXPECT_EQ(OK, buffer->unlock());
    EXPECT_EQ(2u, mapperUnlockErrors());
}

// Faults fail the named calls; null-address points are not calls of their own in the record.
TEST_F(GraphicBufferTest, InjectedFaultsFailTheNamedCallsAndAreRecordedInOrder) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_YCrCb_420_SP);
    void* data = nullptr;
    android_ycbcr ycbcr{};

    host::injectFault("buffer.lock", -5);
    EXPECT_EQ(-5, buffer->lock(kWrite, &data));
    host::clearCapturedLogs();
    EXPECT_EQ(OK, buffer->unlock());
    EXPECT_EQ(1u, mapperUnlockErrors());  // the failed lock locked nothing

    host::injectFault("buffer.lockYCbCr", NO_MEMORY);
    EXPECT_EQ(NO_MEMORY, buffer->lockYCbCr(kWrite, &ycbcr));
    EXPECT_EQ(OK, buffer->lockYCbCr(kWrite, &ycbcr));

    host::injectFault("buffer.unlock", INVALID_OPERATION);
    EXPECT_EQ(INVALID_OPERATION, buffer->unlock());
    EXPECT_EQ(OK, buffer->unlock());

    // Null-address points let the lock succeed but yield null where they say.
    host::injectFault("buffer.lock.nullAddress", 1);
    data = reinterpret_cast<void*>(0x1);
    ASSERT_EQ(OK, buffer->lock(kWrite, &data));
    EXPECT_EQ(nullptr, data);
    EXPECT_EQ(OK, buffer->unlock());  // it was locked

    host::injectFault("buffer.lockYCbCr.nullCb", 1);
    ycbcr = {};
    ASSERT_EQ(OK, buffer->lockYCbCr(kWrite, &ycbcr));
    EXPECT_TRUE(ycbcr.y && ycbcr.cr && !ycbcr.cb);
    EXPECT_EQ(OK, buffer->unlock());

    host::injectFault("buffer.lockAsyncYCbCr.nullY", 1);
    ASSERT_EQ(OK, buffer->lockAsyncYCbCr(kRead, &ycbcr, -1));
    EXPECT_TRUE(!ycbcr.y && ycbcr.cb);
    EXPECT_EQ(OK, buffer->unlock());

    const std::vector<std::string> expected = {
            "buffer.lock",      "buffer.unlock", "buffer.lockYCbCr",      "buffer.lockYCbCr",
            "buffer.unlock",    "buffer.unlock", "buffer.lock",           "buffer.unlock",
            "buffer.lockYCbCr", "buffer.unlock", "buffer.lockAsyncYCbCr", "buffer.unlock"};
    EXPECT_EQ(expected, host::recordedCalls());
}

// A pipe's read end signals once written to; async locks close their fence, failing too (that
// they wait for it: ImageReadTest.LocksWaitForTheCamerasAcquireFence).
TEST_F(GraphicBufferTest, FencesWaitForTheirDescriptorAndAsyncLocksCloseThem) {
    const sp<Fence>& none = Fence::NO_FENCE;
    EXPECT_EQ(std::make_tuple(false, OK, -1, Fence::Status::Invalid),
              std::make_tuple(none->isValid(), none->wait(0), none->dup(), none->getStatus()));

    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_YCbCr_420_888);
    const int fdsBefore = openFdCount();
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    sp<Fence> fence = new Fence(dup(pipeFds[0]));
    EXPECT_TRUE(fence->isValid());
    EXPECT_EQ(Fence::Status::Unsignaled, fence->getStatus());
    EXPECT_EQ(-ETIME, fence->wait(10));
    const int copy = fence->dup();
    EXPECT_GE(copy, 0);
    close(copy);  // the fence's own descriptor stays open: the waits below need it
    const char byte = 1;
    ASSERT_EQ(1, write(pipeFds[1], &byte, 1));
    android_ycbcr ycbcr{};
    ASSERT_EQ(OK, buffer->lockAsyncYCbCr(kRead, Rect(0, 0, 64, 16), &ycbcr, pipeFds[0]));
    EXPECT_EQ(OK, fence->wait(Fence::TIMEOUT_NEVER));
    EXPECT_EQ(OK, fence->waitForever("test"));
    EXPECT_EQ(Fence::Status::Signaled, fence->getStatus());
    fence.clear();
    close(pipeFds[1]);
    int fenceFd = 0;
    EXPECT_EQ(OK, buffer->unlockAsync(&fenceFd));
    EXPECT_EQ(-1, fenceFd);
    EXPECT_EQ(fdsBefore, openFdCount());  // the lock closed the pipe's read end

    host::injectFault("buffer.lockAsync", NO_MEMORY);
    void* data = nullptr;
    EXPECT_EQ(NO_MEMORY, buffer->lockAsync(kRead, &data, dup(STDERR_FILENO)));
    EXPECT_EQ(BAD_VALUE, buffer->lockAsyncYCbCr(0, &ycbcr, dup(STDERR_FILENO)));
    EXPECT_EQ(fdsBefore, openFdCount());
}

TEST_F(GraphicBufferTest, ReallocateReplacesTheBufferOnlyWhenItMust) {
    constexpr int32_t kVenus = HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS;
    constexpr int32_t kRgba = HAL_PIXEL_FORMAT_RGBA_8888;
    const uint64_t usage = kCpuUsage | GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER;
    sp<GraphicBuffer> buffer = new GraphicBuffer();
    EXPECT_EQ(std::make_tuple(OK, nullptr, 0u),
              std::make_tuple(buffer->initCheck(), buffer->handle, buffer->getFdCount()));
    void* data = nullptr;
    EXPECT_EQ(BAD_VALUE, buffer->lock(kRead, &data));  // no memory to lock
    ASSERT_EQ(OK, buffer->reallocate(640, 480, kVenus, 1, usage));
    ASSERT_NE(nullptr, buffer->handle);
    EXPECT_EQ(std::make_tuple(640u, kVenus, usage),
              std::make_tuple(buffer->getWidth(), buffer->getPixelFormat(), buffer->getUsage()));
    const native_handle_t* first = buffer->handle;
    EXPECT_EQ(OK, buffer->reallocate(640, 480, kVenus, 1, usage));
    EXPECT_EQ(first, buffer->handle);

    // A refused size leaves no buffer, with initCheck still that of the object.
    EXPECT_EQ(BAD_VALUE, buffer->reallocate(0, 480, kVenus, 1, usage));
    EXPECT_EQ(std::make_tuple(nullptr, OK), std::make_tuple(buffer->handle, buffer->initCheck()));

    sp<GraphicBuffer> owner = make(kRgba);
    sp<GraphicBuffer> wrapper = new GraphicBuffer(owner->handle, GraphicBuffer::WRAP_HANDLE, 64, 16,
                                                  kRgba, 1, kCpuUsage, owner->getStride());
    EXPECT_EQ(INVALID_OPERATION, wrapper->reallocate(32, 16, kRgba, 1, kCpuUsage));

    host::injectFault("buffer.allocate", NO_MEMORY);
    EXPECT_EQ(NO_MEMORY, buffer->reallocate(64, 64, kRgba, 1, kCpuUsage));
    EXPECT_EQ(nullptr, buffer->handle);
    host::injectFault("buffer.reallocate", BAD_VALUE);
    EXPECT_EQ(BAD_VALUE, buffer->reallocate(64, 64, kRgba, 1, kCpuUsage));
    EXPECT_EQ(OK, buffer->reallocate(64, 64, kRgba, 1, kCpuUsage));
    EXPECT_EQ(7u, host::callCount("buffer.reallocate"));

    EXPECT_FALSE(owner->needsReallocation(64, 16, kRgba, 1, kRead));
    EXPECT_TRUE(owner->needsReallocation(64, 16, kRgba, 1, GRALLOC_USAGE_HW_TEXTURE));
    EXPECT_TRUE(owner->needsReallocation(64, 17, kRgba, 1, kCpuUsage));
}

TEST_F(GraphicBufferTest, NativeAndHardwareBufferViewsLeadBackToTheSameObject) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_RGB_565, kCpuUsage, 20, 10);
    ANativeWindowBuffer* native = buffer->getNativeBuffer();
    EXPECT_EQ(std::make_tuple(ANDROID_NATIVE_BUFFER_MAGIC, 20, HAL_PIXEL_FORMAT_RGB_565),
              std::make_tuple(native->common.magic, native->width, native->format));
    EXPECT_EQ(buffer.get(), GraphicBuffer::from(native).get());
    EXPECT_EQ(buffer.get(), GraphicBuffer::fromAHardwareBuffer(buffer->toAHardwareBuffer()));
    // The native object's reference hooks keep the buffer alive.
    sp<ANativeWindowBuffer> nativeRef = native;
    buffer.clear();
    EXPECT_EQ(20, nativeRef->width);

    // Its description is HardwareBufferTest's; here the plane lock and the usage check.
    AHardwareBuffer_Desc desc = {
            48, 8, 1, AHARDWAREBUFFER_FORMAT_Y8Cb8Cr8_420, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN,
            0,  0, 0};
    AHardwareBuffer* hardwareBuffer = nullptr;
    ASSERT_EQ(0, AHardwareBuffer_allocate(&desc, &hardwareBuffer));
    AHardwareBuffer_Planes planes = {};
    ASSERT_EQ(0, AHardwareBuffer_lockPlanes(hardwareBuffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN,
                                            -1, nullptr, &planes));
    EXPECT_EQ(3u, planes.planeCount);
    EXPECT_EQ(2u, planes.planes[1].pixelStride);
    EXPECT_EQ(0, AHardwareBuffer_unlock(hardwareBuffer, nullptr));
    void* data = nullptr;
    EXPECT_EQ(-EINVAL, AHardwareBuffer_lock(hardwareBuffer, AHARDWAREBUFFER_USAGE_GPU_SAMPLED_IMAGE,
                                            -1, nullptr, &data));
    AHardwareBuffer_release(hardwareBuffer);
}

class MapperTest : public ::testing::Test {
protected:
    void SetUp() override { host::resetFaultsAndCalls(); }
    void TearDown() override { host::clearPlaneLayoutOverride(); }

    static std::vector<PlaneLayout> layoutsOf(const sp<GraphicBuffer>& buffer) {
        std::vector<PlaneLayout> layouts;
        EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(buffer->handle, &layouts), OK);
        return layouts;
    }
};

TEST_F(MapperTest, ToStringIsTheGeneratedPrinterText) {
    const Components chroma = {planeLayoutComponent(Type::CB, 6, 10),
                               planeLayoutComponent(Type::CR, 22, 10)};
    const PlaneLayout layout{chroma, 7680, 32, 128, 32, -24, 3072, 2, 2};
    EXPECT_EQ(layout.toString(),
              "PlaneLayout{components: [PlaneLayoutComponent{type: ExtendableType{name: "
              "android.hardware.graphics.common.PlaneLayoutComponentType, value: 2}, "
              "offsetInBits: 6, sizeInBits: 10}, PlaneLayoutComponent{type: ExtendableType{name: "
              "android.hardware.graphics.common.PlaneLayoutComponentType, value: 4}, "
              "offsetInBits: 22, sizeInBits: 10}], offsetInBytes: 7680, sampleIncrementInBits: "
              "32, strideInBytes: 128, widthInSamples: 32, heightInSamples: -24, "
              "totalSizeInBytes: 3072, horizontalSubsampling: 2, verticalSubsampling: 2}");
    EXPECT_EQ(PlaneLayout().toString(),
              "PlaneLayout{components: [], offsetInBytes: 0, sampleIncrementInBits: 0, "
              "strideInBytes: 0, widthInSamples: 0, heightInSamples: 0, totalSizeInBytes: 0, "
              "horizontalSubsampling: 0, verticalSubsampling: 0}");
    EXPECT_EQ(toString(Type::RAW), "RAW");
    EXPECT_EQ(toString(static_cast<Type>(3)), "3");
}

// Overrides see and replace the host's answer; errors from them, the fault or an unknown handle.
TEST_F(MapperTest, OverridesAndErrorsReplaceTheAnswer) {
    sp<GraphicBuffer> buffer(new GraphicBuffer(64, 48, HAL_PIXEL_FORMAT_YCBCR_P010, 1, kRead));
    const std::vector<PlaneLayout> own = layoutsOf(buffer);

    buffer_handle_t seen = nullptr;
    host::setPlaneLayoutOverride([&](buffer_handle_t handle, host::PlaneLayouts* layouts) {
        seen = handle;
        EXPECT_EQ(*layouts, own);
        std::swap((*layouts)[1].components[0], (*layouts)[1].components[1]);
        return OK;
    });
    std::vector<PlaneLayout> swapped = layoutsOf(buffer);
    EXPECT_EQ(seen, buffer->handle);
    ASSERT_EQ(swapped.size(), 2u);
    EXPECT_EQ(swapped[1].components[0].type.value, static_cast<int64_t>(Type::CR));

    host::setPlaneLayoutOverride(OK, {});
    EXPECT_TRUE(layoutsOf(buffer).empty());

    std::vector<PlaneLayout> untouched = own;
    host::setPlaneLayoutOverride(NO_MEMORY, {PlaneLayout()});
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(buffer->handle, &untouched), NO_MEMORY);
    EXPECT_EQ(untouched, own);

    host::clearPlaneLayoutOverride();
    EXPECT_EQ(layoutsOf(buffer), own);

    host::clearRecordedCalls();
    host::injectFault("mapper.getPlaneLayouts", -EIO);
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(buffer->handle, &untouched), -EIO);
    EXPECT_EQ(host::callCount("mapper.getPlaneLayouts"), 1u);

    native_handle_t* foreign = native_handle_create(0, 1);
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(foreign, &untouched), BAD_VALUE);
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(nullptr, &untouched), BAD_VALUE);
    native_handle_delete(foreign);
    EXPECT_EQ(&GraphicBufferMapper::get(), &GraphicBufferMapper::getInstance());
}

}  // namespace
