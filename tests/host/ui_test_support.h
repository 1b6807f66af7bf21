// Helpers shared by the tests of the host buffer pipeline.
#pragma once

#include <dirent.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>

#include <string>

namespace hosttest {

// Number of descriptors open in this process.
inline int openFdCount() {
    int count = 0;
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') count++;
    }
    closedir(dir);
    return count - 1;  // the descriptor of the directory listing itself
}

// Selects a device profile for the life of the object, then returns to the previous one.
class ScopedProfile {
public:
    explicit ScopedProfile(const std::string& name) : mPrevious(host::currentDeviceProfile().name) {
        ok = host::selectDeviceProfile(name);
    }
    ~ScopedProfile() { host::selectDeviceProfile(mPrevious); }
    bool ok = false;

private:
    std::string mPrevious;
};

inline uint32_t alignTo(uint32_t value, uint32_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

}  // namespace hosttest
