/*
 * aidl::android::hardware::graphics::common::PlaneLayoutComponent: one component (Y, Cb, R...)
 * of a plane: its type, where its bits start within a sample and how many bits it has.
 */
#pragma once

#include <aidl/android/hardware/graphics/common/ExtendableType.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <tuple>

namespace aidl {
namespace android {
namespace hardware {
namespace graphics {
namespace common {

class PlaneLayoutComponent {
public:
    typedef std::false_type fixed_size;
    static inline const char* descriptor = "android.hardware.graphics.common.PlaneLayoutComponent";

    ExtendableType type;
    int64_t offsetInBits = 0;
    int64_t sizeInBits = 0;

    inline bool operator!=(const PlaneLayoutComponent& rhs) const {
        return std::tie(type, offsetInBits, sizeInBits) !=
               std::tie(rhs.type, rhs.offsetInBits, rhs.sizeInBits);
    }
    inline bool operator<(const PlaneLayoutComponent& rhs) const {
        return std::tie(type, offsetInBits, sizeInBits) <
               std::tie(rhs.type, rhs.offsetInBits, rhs.sizeInBits);
    }
    inline bool operator<=(const PlaneLayoutComponent& rhs) const {
        return std::tie(type, offsetInBits, sizeInBits) <=
               std::tie(rhs.type, rhs.offsetInBits, rhs.sizeInBits);
    }
    inline bool operator==(const PlaneLayoutComponent& rhs) const {
        return std::tie(type, offsetInBits, sizeInBits) ==
               std::tie(rhs.type, rhs.offsetInBits, rhs.sizeInBits);
    }
    inline bool operator>(const PlaneLayoutComponent& rhs) const {
        return std::tie(type, offsetInBits, sizeInBits) >
               std::tie(rhs.type, rhs.offsetInBits, rhs.sizeInBits);
    }
    inline bool operator>=(const PlaneLayoutComponent& rhs) const {
        return std::tie(type, offsetInBits, sizeInBits) >=
               std::tie(rhs.type, rhs.offsetInBits, rhs.sizeInBits);
    }

    inline std::string toString() const {
        std::ostringstream _aidl_os;
        _aidl_os << "PlaneLayoutComponent{";
        _aidl_os << "type: " << type.toString();
        _aidl_os << ", offsetInBits: " << std::to_string(offsetInBits);
        _aidl_os << ", sizeInBits: " << std::to_string(sizeInBits);
        _aidl_os << "}";
        return _aidl_os.str();
    }
};

}  // namespace common
}  // namespace graphics
}  // namespace hardware
}  // namespace android
}  // namespace aidl
