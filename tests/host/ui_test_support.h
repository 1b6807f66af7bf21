// Helpers shared by the tests of the host buffer pipeline.
#pragma once

#include <gtest/gtest.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>

#include <filesystem>
#include <iterator>
#include <string>

namespace hosttest {

// Number of descriptors open in this process.
inline int openFdCount() {
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<int>(std::distance(begin(fds), end(fds))) - 1;  // the listing's own
}

// Selects a device profile for the life of the object, then returns to the previous one.
class ScopedProfile {
public:
    explicit ScopedProfile(const std::string& name) : mPrevious(host::currentDeviceProfile().name) {
        EXPECT_TRUE(host::selectDeviceProfile(name)) << name;
    }
    ~ScopedProfile() { host::selectDeviceProfile(mPrevious); }

private:
    std::string mPrevious;
};

inline uint32_t alignTo(uint32_t value, uint32_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

}  // namespace hosttest
