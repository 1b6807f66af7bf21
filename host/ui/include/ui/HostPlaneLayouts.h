/*
 * The host mapper's plane layouts, and how tests replace them.
 *
 * GraphicBufferMapper::getPlaneLayouts answers for every format the host gralloc allocates,
 * from the buffer's own layout (offsets, strides and rows of the device profile it was
 * allocated under), as a gralloc 4 mapper on a phone does:
 *   - one PlaneLayout per plane in memory order; offsetInBytes, strideInBytes and
 *     totalSizeInBytes (stride x allocated rows) of that plane; widthInSamples and
 *     heightInSamples of the image; subsampling 1, or 2 for 4:2:0 chroma planes;
 *   - components named by the standard ExtendableType
 *     ("android.hardware.graphics.common.PlaneLayoutComponentType"):
 *       RGB formats            R, G, B (A) in memory order; RGB_565 B 0/5, G 5/6, R 11/5
 *       8-bit semi-planar      Y 0/8, increment 8; chroma CB and CR in memory order at 0 and
 *                              8, size 8, increment 16
 *       P010                   Y 6/10, increment 16; chroma CB 6/10 and CR 22/10, increment 32
 *       16-bit semi-planar     Y 0/16, increment 16; CB 0/16, CR 16/16, increment 32
 *       YV12                   Y, then a CR plane and a CB plane, each 0/8, increment 8
 *       Y8, Y16                Y 0/8, 0/16
 *       RAW16, RAW10, RAW12    RAW 0/16 (increment 16), 0/10 and 0/12 (increment 0: packed)
 *       RAW_OPAQUE             RAW of unknown size (0), increment 0
 *       BLOB                   one plane of bytes without components, increment 8
 *       UBWC NV12              the luma and chroma tile planes, 8-bit Y and CB, CR, increment
 *                              0 (compressed); the metadata planes are not listed
 *   (offset/size in bits.)
 *
 * An override replaces the answer for every buffer until cleared: tests hand the library
 * layouts that a phone's gralloc may give but the host's never does (CR listed before CB, other
 * increments or sizes, an empty list, RGB components) or a mapper error. The JVM test fixture
 * clears it before each test.
 */
#pragma once

#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <cutils/native_handle.h>
#include <ui/GraphicTypes.h>
#include <ui/HostGrallocLayout.h>
#include <utils/Errors.h>

#include <functional>
#include <vector>

namespace host {

using PlaneLayouts = std::vector<android::ui::PlaneLayout>;

// The layouts the host mapper gives a buffer laid out as `layout`.
PlaneLayouts grallocPlaneLayouts(const GrallocLayout& layout);

// A standard component: the ExtendableType of `type`, its offset and size in bits.
aidl::android::hardware::graphics::common::PlaneLayoutComponent planeLayoutComponent(
        aidl::android::hardware::graphics::common::PlaneLayoutComponentType type,
        int64_t offsetInBits, int64_t sizeInBits);

// Called by getPlaneLayouts with the buffer's handle and the layouts the host would answer
// (empty for a handle the host gralloc did not allocate); what it returns and leaves in
// *layouts is the mapper's answer (the layouts only count when it returns OK).
using PlaneLayoutOverride =
        std::function<android::status_t(buffer_handle_t handle, PlaneLayouts* layouts)>;
void setPlaneLayoutOverride(PlaneLayoutOverride override);
// Every buffer gets `status` and, when that is OK, `layouts`.
void setPlaneLayoutOverride(android::status_t status, PlaneLayouts layouts);
void clearPlaneLayoutOverride();

}  // namespace host
