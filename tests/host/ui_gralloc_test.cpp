// The host gralloc: per-format layouts in every device profile, the buffer handle, shared
// memory and descriptor hygiene.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <hardware/gralloc_qcom.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostGrallocGuard.h>
#include <ui/HostGrallocLayout.h>
#include <unistd.h>

#include <vector>

#include "ui_test_support.h"

using android::GraphicBuffer;
using android::sp;
using hosttest::alignTo;

namespace {

constexpr uint64_t kCpuUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

// What a buffer of a format must look like, worked out from the format's rules alone.
struct Expected {
    uint32_t stride = 0;  // GraphicBuffer::getStride()
    bool ycbcr = false;
    size_t cb = 0, cr = 0;  // chroma offsets from the luma
    uint32_t yStride = 0, cStride = 0, step = 0;
};

Expected expectedLayout(int32_t format, uint32_t w, uint32_t h, bool padded, bool nv12) {
    Expected e;
    auto semiPlanar = [&](uint32_t stride, uint32_t lumaRows, bool cbFirst) {
        e.stride = stride;
        e.ycbcr = true;
        size_t chroma = static_cast<size_t>(stride) * lumaRows;
        e.cb = cbFirst ? chroma : chroma + 1;
        e.cr = cbFirst ? chroma + 1 : chroma;
        e.yStride = e.cStride = stride;
        e.step = 2;
    };
    switch (format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_BGRA_8888:
        case HAL_PIXEL_FORMAT_RGB_888:
        case HAL_PIXEL_FORMAT_RGB_565:
            e.stride = padded ? alignTo(w, 64) : w;
            break;
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case PIXEL_FORMAT_YCrCb_420_SP_M:
            // Chroma right after the luma rows, Cr first.
            semiPlanar(padded ? alignTo(w, 64) : alignTo(w, 2), h, false);
            break;
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
            semiPlanar(padded ? alignTo(w, 64) : alignTo(w, 2), padded ? alignTo(h, 64) : h, nv12);
            break;
        case HAL_PIXEL_FORMAT_YV12: {
            e.stride = alignTo(w, padded ? 64 : 16);
            e.ycbcr = true;
            e.yStride = e.stride;
            e.cStride = alignTo(e.stride / 2, 16);
            e.cr = static_cast<size_t>(e.stride) * h;
            e.cb = e.cr + static_cast<size_t>(e.cStride) * (h / 2);
            e.step = 1;
            break;
        }
        case HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS:
            semiPlanar(alignTo(w, 128), alignTo(h, 32), false);
            break;
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS:
            semiPlanar(alignTo(w, 128), alignTo(h, 32), true);
            break;
        case HAL_PIXEL_FORMAT_BLOB:
            e.stride = w;
            break;
    }
    return e;
}

TEST(HostGralloc, LayoutsFollowEachFormatsRulesInEveryProfile) {
    const int32_t formats[] = {HAL_PIXEL_FORMAT_RGBA_8888,
                               HAL_PIXEL_FORMAT_RGBX_8888,
                               HAL_PIXEL_FORMAT_RGB_888,
                               HAL_PIXEL_FORMAT_RGB_565,
                               HAL_PIXEL_FORMAT_BGRA_8888,
                               HAL_PIXEL_FORMAT_YCrCb_420_SP,
                               PIXEL_FORMAT_YCrCb_420_SP_M,
                               HAL_PIXEL_FORMAT_YCbCr_420_888,
                               HAL_PIXEL_FORMAT_YV12,
                               HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS,
                               HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS};
    const std::pair<uint32_t, uint32_t> sizes[] = {{640, 480}, {100, 30}, {1000, 750}, {2, 2}};

    for (const host::DeviceProfile& profile : host::deviceProfiles()) {
        hosttest::ScopedProfile scoped(profile.name);
        ASSERT_TRUE(scoped.ok);
        for (int32_t format : formats) {
            for (auto [w, h] : sizes) {
                SCOPED_TRACE(profile.name + " " + host::grallocFormatName(format) + " " +
                             std::to_string(w) + "x" + std::to_string(h));
                const Expected e =
                        expectedLayout(format, w, h, profile.paddedLayouts, profile.flexYuvIsNv12);
                sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, format, 1, kCpuUsage);
                ASSERT_EQ(android::OK, buffer->initCheck());
                EXPECT_EQ(e.stride, buffer->getStride());

                void* base = nullptr;
                ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &base));
                ASSERT_NE(nullptr, base);
                ASSERT_EQ(android::OK, buffer->unlock());

                android_ycbcr ycbcr{};
                const int status = buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr);
                ASSERT_EQ(android::OK, status);
                if (!e.ycbcr) {  // no YCbCr components: locked, nothing described
                    EXPECT_EQ(nullptr, ycbcr.y);
                    EXPECT_EQ(nullptr, ycbcr.cb);
                    EXPECT_EQ(android::OK, buffer->unlock());
                    continue;
                }
                auto* y = static_cast<uint8_t*>(ycbcr.y);
                EXPECT_EQ(base, ycbcr.y);
                EXPECT_EQ(e.cb, static_cast<size_t>(static_cast<uint8_t*>(ycbcr.cb) - y));
                EXPECT_EQ(e.cr, static_cast<size_t>(static_cast<uint8_t*>(ycbcr.cr) - y));
                EXPECT_EQ(e.yStride, ycbcr.ystride);
                EXPECT_EQ(e.cStride, ycbcr.cstride);
                EXPECT_EQ(e.step, ycbcr.chroma_step);
                EXPECT_EQ(android::OK, buffer->unlock());
            }
        }
    }
}

TEST(HostGralloc, BlobIsAByteArrayOfWidthBytes) {
    sp<GraphicBuffer> blob = new GraphicBuffer(1008, 1, HAL_PIXEL_FORMAT_BLOB, 1, kCpuUsage);
    ASSERT_EQ(android::OK, blob->initCheck());
    EXPECT_EQ(1008u, blob->getStride());
    host::GrallocLayout layout;
    ASSERT_TRUE(host::grallocLayoutOf(*blob, &layout));
    EXPECT_EQ(1008u, layout.size);

    sp<GraphicBuffer> tall = new GraphicBuffer(1008, 2, HAL_PIXEL_FORMAT_BLOB, 1, kCpuUsage);
    EXPECT_EQ(android::BAD_VALUE, tall->initCheck());
    EXPECT_EQ(nullptr, tall->handle);
}

TEST(HostGralloc, LayoutIsFixedWhenTheBufferIsAllocated) {
    hosttest::ScopedProfile packed("packed-nv21");
    sp<GraphicBuffer> buffer =
            new GraphicBuffer(100, 10, HAL_PIXEL_FORMAT_YCbCr_420_888, 1, kCpuUsage);
    ASSERT_TRUE(host::selectDeviceProfile("phone-qcom"));

    EXPECT_EQ(100u, buffer->getStride());
    android_ycbcr ycbcr{};
    ASSERT_EQ(android::OK, buffer->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr));
    // Still NV21 order and packed, as when it was allocated.
    EXPECT_EQ(static_cast<uint8_t*>(ycbcr.y) + 1000, ycbcr.cr);
    EXPECT_EQ(static_cast<uint8_t*>(ycbcr.cr) + 1, ycbcr.cb);
    EXPECT_EQ(android::OK, buffer->unlock());
}

TEST(HostGralloc, RefusesSizesAndFormatsItCannotAllocate) {
    auto allocationStatus = [](uint32_t w, uint32_t h, int32_t format) {
        sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, format, 1, kCpuUsage);
        EXPECT_EQ(buffer->initCheck() == android::OK, buffer->handle != nullptr);
        return buffer->initCheck();
    };
    EXPECT_EQ(android::BAD_VALUE, allocationStatus(0, 10, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(android::BAD_VALUE, allocationStatus(10, 0, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(android::BAD_VALUE, allocationStatus(10, 10, 0x999));
    EXPECT_EQ(android::BAD_VALUE, allocationStatus(70000, 70000, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(android::OK, allocationStatus(10, 10, HAL_PIXEL_FORMAT_YCBCR_P010));

    host::resetFaultsAndCalls();
    host::injectFault("buffer.allocate", android::NO_MEMORY);
    sp<GraphicBuffer> failed = new GraphicBuffer(16, 16, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    EXPECT_EQ(android::NO_MEMORY, failed->initCheck());
    EXPECT_EQ(nullptr, failed->handle);
    EXPECT_EQ(0u, failed->getFdCount());
    sp<GraphicBuffer> next = new GraphicBuffer(16, 16, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    EXPECT_EQ(android::OK, next->initCheck());
    EXPECT_EQ(0u, host::callCount("buffer.allocate"));  // not a call of its own
}

TEST(HostGralloc, HandleCarriesTheMemfdAndItsLayout) {
    sp<GraphicBuffer> buffer =
            new GraphicBuffer(64, 32, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, kCpuUsage);
    ASSERT_NE(nullptr, buffer->handle);
    ASSERT_EQ(1, buffer->handle->numFds);
    EXPECT_EQ(1u, buffer->getFdCount());

    const int fd = buffer->handle->data[0];
    char path[128] = {};
    ASSERT_GT(readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof(path) - 1), 0);
    EXPECT_EQ(0, strncmp(path, "/memfd:gralloc-", 15)) << path;
    // Sealed at its size: it can neither shrink nor grow. In guard mode the buffer ends where
    // the file's last page does.
    EXPECT_NE(0, ftruncate(fd, 1));
    EXPECT_EQ(host::grallocGuardMode() ? 4096 : 64 * 32 * 3 / 2, lseek(fd, 0, SEEK_END));

    // The handle alone describes the layout.
    host::GrallocLayout fromBuffer;
    ASSERT_TRUE(host::grallocLayoutOf(*buffer, &fromBuffer));
    sp<GraphicBuffer> wrapped =
            new GraphicBuffer(buffer->handle, GraphicBuffer::WRAP_HANDLE, 64, 32,
                              HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, kCpuUsage, buffer->getStride());
    host::GrallocLayout fromHandle;
    ASSERT_TRUE(host::grallocLayoutOf(*wrapped, &fromHandle));
    ASSERT_EQ(fromBuffer.planes.size(), fromHandle.planes.size());
    EXPECT_EQ(fromBuffer.planes[1].offset, fromHandle.planes[1].offset);
    EXPECT_EQ(fromBuffer.size, fromHandle.size);
}

TEST(HostGralloc, ImportedHandlesShareTheMemory) {
    sp<GraphicBuffer> original = new GraphicBuffer(32, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    void* data = nullptr;
    ASSERT_EQ(android::OK, original->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &data));
    memset(data, 0x5A, 32 * 8 * 4);
    ASSERT_EQ(android::OK, original->unlock());

    sp<GraphicBuffer> clone =
            new GraphicBuffer(original->handle, GraphicBuffer::CLONE_HANDLE, 32, 8,
                              HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage, original->getStride());
    ASSERT_EQ(android::OK, clone->initCheck());
    EXPECT_NE(original->handle, clone->handle);
    EXPECT_NE(original->handle->data[0], clone->handle->data[0]);
    std::vector<uint8_t> seen = host::readBufferContents(*clone);
    ASSERT_EQ(32u * 8 * 4, seen.size());
    EXPECT_EQ(std::vector<uint8_t>(seen.size(), 0x5A), seen);

    // A description that does not match the handle is refused, as is a foreign handle.
    sp<GraphicBuffer> mismatched =
            new GraphicBuffer(original->handle, GraphicBuffer::CLONE_HANDLE, 16, 8,
                              HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage, original->getStride());
    EXPECT_EQ(android::BAD_VALUE, mismatched->initCheck());
    EXPECT_EQ(nullptr, mismatched->handle);

    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    native_handle_t* foreign = native_handle_create(1, 2);
    foreign->data[0] = pipeFds[0];
    sp<GraphicBuffer> notOurs = new GraphicBuffer(foreign, GraphicBuffer::CLONE_HANDLE, 4, 4,
                                                  HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage, 4);
    EXPECT_EQ(android::BAD_VALUE, notOurs->initCheck());
    native_handle_close(foreign);
    native_handle_delete(foreign);
    close(pipeFds[1]);
}

TEST(HostGralloc, ContentsComeBackWithoutPadding) {
    hosttest::ScopedProfile phone("phone-nv21");
    const uint32_t w = 100, h = 10;
    sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, kCpuUsage);
    ASSERT_EQ(128u, buffer->getStride());

    std::vector<uint8_t> nv21(w * h * 3 / 2);
    for (size_t i = 0; i < nv21.size(); i++) nv21[i] = static_cast<uint8_t>(i * 7 + 3);
    ASSERT_TRUE(host::writeBufferContents(*buffer, nv21.data(), nv21.size()));
    EXPECT_FALSE(host::writeBufferContents(*buffer, nv21.data(), nv21.size() - 1));

    // The rows land at the padded stride.
    android_ycbcr ycbcr{};
    ASSERT_EQ(android::OK, buffer->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr));
    auto* y = static_cast<const uint8_t*>(ycbcr.y);
    auto* cr = static_cast<const uint8_t*>(ycbcr.cr);
    EXPECT_EQ(nv21[3 * w + 5], y[3 * 128 + 5]);
    EXPECT_EQ(nv21[w * h + 2 * w + 8], cr[2 * 128 + 8]);
    EXPECT_EQ(android::OK, buffer->unlock());

    EXPECT_EQ(nv21, host::readBufferContents(*buffer));
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

TEST(HostGralloc, GuardModePutsAnInaccessiblePageRightAfterEveryBuffer) {
    ASSERT_TRUE(host::grallocGuardMode());  // the test suites run in guard mode
    hosttest::ScopedProfile phone("phone-nv21");
    const struct {
        int32_t format;
        uint32_t w, h;
    } cases[] = {{HAL_PIXEL_FORMAT_YCrCb_420_SP, 128, 64},  // exactly three pages
                 {HAL_PIXEL_FORMAT_YCrCb_420_SP, 30, 7},      {HAL_PIXEL_FORMAT_BLOB, 1001, 1},
                 {HAL_PIXEL_FORMAT_RGB_565, 33, 3},           {HAL_PIXEL_FORMAT_YV12, 40, 10},
                 {HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS, 70, 9}};
    for (const auto& c : cases) {
        SCOPED_TRACE(host::grallocFormatName(c.format) + " " + std::to_string(c.w));
        sp<GraphicBuffer> buffer = new GraphicBuffer(c.w, c.h, c.format, 1, kCpuUsage);
        ASSERT_EQ(android::OK, buffer->initCheck());
        host::GrallocLayout layout;
        ASSERT_TRUE(host::grallocLayoutOf(*buffer, &layout));
        sp<GraphicBuffer> clone =
                new GraphicBuffer(buffer->handle, GraphicBuffer::CLONE_HANDLE, c.w, c.h, c.format,
                                  1, kCpuUsage, buffer->getStride());
        for (const sp<GraphicBuffer>& b : {buffer, clone}) {
            void* data = nullptr;
            ASSERT_EQ(android::OK, b->lock(GRALLOC_USAGE_SW_READ_OFTEN, &data));
            const uint8_t* base = static_cast<const uint8_t*>(data);
            EXPECT_TRUE(readable(base));
            EXPECT_TRUE(readable(base + layout.size - 1));
            EXPECT_FALSE(readable(base + layout.size));
            EXPECT_EQ(android::OK, b->unlock());
        }

        // The whole memory comes back, padding included; the contents leave the padding out.
        void* data = nullptr;
        ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &data));
        for (size_t i = 0; i < layout.size; ++i) static_cast<uint8_t*>(data)[i] = i * 13 + 1;
        ASSERT_EQ(android::OK, buffer->unlock());
        std::vector<uint8_t> memory = host::readBufferMemory(*clone);
        ASSERT_EQ(layout.size, memory.size());
        for (size_t i = 0; i < layout.size; ++i)
            ASSERT_EQ(static_cast<uint8_t>(i * 13 + 1), memory[i]);
        EXPECT_EQ(packedContentSize(layout), host::readBufferContents(*clone).size());
    }
    sp<GraphicBuffer> empty = new GraphicBuffer();
    EXPECT_TRUE(host::readBufferMemory(*empty).empty());
}

TEST(HostGralloc, ThousandsOfCyclesLeakNoDescriptorOrMapping) {
    const int fdsBefore = hosttest::openFdCount();
    const size_t liveBefore = host::grallocLiveBufferCount();
    const int32_t formats[] = {HAL_PIXEL_FORMAT_RGBA_8888, HAL_PIXEL_FORMAT_YCrCb_420_SP,
                               HAL_PIXEL_FORMAT_YV12, HAL_PIXEL_FORMAT_BLOB};
    for (int i = 0; i < 2000; i++) {
        const int32_t format = formats[i % 4];
        sp<GraphicBuffer> buffer = new GraphicBuffer(64, format == HAL_PIXEL_FORMAT_BLOB ? 1 : 16,
                                                     format, 1, kCpuUsage);
        ASSERT_EQ(android::OK, buffer->initCheck());
        void* data = nullptr;
        ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &data));
        static_cast<uint8_t*>(data)[0] = static_cast<uint8_t>(i);
        ASSERT_EQ(android::OK, buffer->unlock());
        if (i % 10 == 0) {
            sp<GraphicBuffer> clone = new GraphicBuffer(buffer->handle, GraphicBuffer::CLONE_HANDLE,
                                                        buffer->getWidth(), buffer->getHeight(),
                                                        format, 1, kCpuUsage, buffer->getStride());
            ASSERT_EQ(android::OK, clone->initCheck());
        }
    }
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());
    EXPECT_EQ(liveBefore, host::grallocLiveBufferCount());
}

}  // namespace
