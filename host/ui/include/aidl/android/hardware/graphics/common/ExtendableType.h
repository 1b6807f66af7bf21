/*
 * aidl::android::hardware::graphics::common::ExtendableType, as the NDK backend of the AIDL
 * compiler generates it: a (name, value) pair naming a standard or vendor enumerator. The
 * standard plane layout component types carry the name
 * "android.hardware.graphics.common.PlaneLayoutComponentType".
 *
 * On the host the parcelable has its fields, comparisons and the generated toString(); there is
 * no Parcel, so readFromParcel/writeToParcel are left out.
 */
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <tuple>

namespace aidl {
namespace android {
namespace hardware {
namespace graphics {
namespace common {

class ExtendableType {
public:
    typedef std::false_type fixed_size;
    static inline const char* descriptor = "android.hardware.graphics.common.ExtendableType";

    std::string name;
    int64_t value = 0;

    inline bool operator!=(const ExtendableType& rhs) const {
        return std::tie(name, value) != std::tie(rhs.name, rhs.value);
    }
    inline bool operator<(const ExtendableType& rhs) const {
        return std::tie(name, value) < std::tie(rhs.name, rhs.value);
    }
    inline bool operator<=(const ExtendableType& rhs) const {
        return std::tie(name, value) <= std::tie(rhs.name, rhs.value);
    }
    inline bool operator==(const ExtendableType& rhs) const {
        return std::tie(name, value) == std::tie(rhs.name, rhs.value);
    }
    inline bool operator>(const ExtendableType& rhs) const {
        return std::tie(name, value) > std::tie(rhs.name, rhs.value);
    }
    inline bool operator>=(const ExtendableType& rhs) const {
        return std::tie(name, value) >= std::tie(rhs.name, rhs.value);
    }

    // "ExtendableType{name: <name>, value: <value>}": the string as it is, the number in
    // decimal, as the generated printers write them.
    inline std::string toString() const {
        std::ostringstream _aidl_os;
        _aidl_os << "ExtendableType{";
        _aidl_os << "name: " << name;
        _aidl_os << ", value: " << std::to_string(value);
        _aidl_os << "}";
        return _aidl_os.str();
    }
};

}  // namespace common
}  // namespace graphics
}  // namespace hardware
}  // namespace android
}  // namespace aidl
