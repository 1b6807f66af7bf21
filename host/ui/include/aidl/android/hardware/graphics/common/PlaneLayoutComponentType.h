/*
 * aidl::android::hardware::graphics::common::PlaneLayoutComponentType: the standard component
 * types of a plane layout (a 64-bit backed AIDL enum), with the generated toString(). A
 * PlaneLayoutComponent names its type through an ExtendableType whose name is
 * "android.hardware.graphics.common.PlaneLayoutComponentType" and whose value is one of these.
 */
#pragma once

#include <cstdint>
#include <string>

namespace aidl {
namespace android {
namespace hardware {
namespace graphics {
namespace common {

enum class PlaneLayoutComponentType : int64_t {
    Y = 1L,
    CB = 2L,
    CR = 4L,
    R = 1024L,
    G = 2048L,
    B = 4096L,
    RAW = 1048576L,
    A = 1073741824L,
};

[[nodiscard]] static inline std::string toString(PlaneLayoutComponentType val) {
    switch (val) {
        case PlaneLayoutComponentType::Y:
            return "Y";
        case PlaneLayoutComponentType::CB:
            return "CB";
        case PlaneLayoutComponentType::CR:
            return "CR";
        case PlaneLayoutComponentType::R:
            return "R";
        case PlaneLayoutComponentType::G:
            return "G";
        case PlaneLayoutComponentType::B:
            return "B";
        case PlaneLayoutComponentType::RAW:
            return "RAW";
        case PlaneLayoutComponentType::A:
            return "A";
        default:
            return std::to_string(static_cast<int64_t>(val));
    }
}

}  // namespace common
}  // namespace graphics
}  // namespace hardware
}  // namespace android
}  // namespace aidl
