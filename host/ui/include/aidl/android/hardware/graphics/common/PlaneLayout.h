/*
 * aidl::android::hardware::graphics::common::PlaneLayout: how one plane of a buffer lies in
 * memory, as a gralloc 4 mapper describes it (IMapper::get of the PlaneLayouts metadata).
 */
#pragma once

#include <aidl/android/hardware/graphics/common/PlaneLayoutComponent.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace aidl {
namespace android {
namespace hardware {
namespace graphics {
namespace common {

class PlaneLayout {
public:
    typedef std::false_type fixed_size;
    static inline const char* descriptor = "android.hardware.graphics.common.PlaneLayout";

    std::vector<PlaneLayoutComponent> components;
    int64_t offsetInBytes = 0;
    int64_t sampleIncrementInBits = 0;
    int64_t strideInBytes = 0;
    int64_t widthInSamples = 0;
    int64_t heightInSamples = 0;
    int64_t totalSizeInBytes = 0;
    int64_t horizontalSubsampling = 0;
    int64_t verticalSubsampling = 0;

    inline auto tie() const {
        return std::tie(components, offsetInBytes, sampleIncrementInBits, strideInBytes,
                        widthInSamples, heightInSamples, totalSizeInBytes, horizontalSubsampling,
                        verticalSubsampling);
    }
    inline bool operator!=(const PlaneLayout& rhs) const { return tie() != rhs.tie(); }
    inline bool operator<(const PlaneLayout& rhs) const { return tie() < rhs.tie(); }
    inline bool operator<=(const PlaneLayout& rhs) const { return tie() <= rhs.tie(); }
    inline bool operator==(const PlaneLayout& rhs) const { return tie() == rhs.tie(); }
    inline bool operator>(const PlaneLayout& rhs) const { return tie() > rhs.tie(); }
    inline bool operator>=(const PlaneLayout& rhs) const { return tie() >= rhs.tie(); }

    // The generated printer: lists as "[a, b]" of their elements' toString().
    inline std::string toString() const {
        std::ostringstream _aidl_os;
        _aidl_os << "PlaneLayout{";
        _aidl_os << "components: [";
        for (size_t i = 0; i < components.size(); i++) {
            if (i != 0) _aidl_os << ", ";
            _aidl_os << components[i].toString();
        }
        _aidl_os << "]";
        _aidl_os << ", offsetInBytes: " << std::to_string(offsetInBytes);
        _aidl_os << ", sampleIncrementInBits: " << std::to_string(sampleIncrementInBits);
        _aidl_os << ", strideInBytes: " << std::to_string(strideInBytes);
        _aidl_os << ", widthInSamples: " << std::to_string(widthInSamples);
        _aidl_os << ", heightInSamples: " << std::to_string(heightInSamples);
        _aidl_os << ", totalSizeInBytes: " << std::to_string(totalSizeInBytes);
        _aidl_os << ", horizontalSubsampling: " << std::to_string(horizontalSubsampling);
        _aidl_os << ", verticalSubsampling: " << std::to_string(verticalSubsampling);
        _aidl_os << "}";
        return _aidl_os.str();
    }
};

}  // namespace common
}  // namespace graphics
}  // namespace hardware
}  // namespace android
}  // namespace aidl
