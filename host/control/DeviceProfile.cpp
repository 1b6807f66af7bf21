// The device profiles the host platform can pretend to be.

#include <hostcontrol/DeviceProfile.h>
#include <hostproperties/HostProperties.h>

#include <atomic>
#include <cstdlib>
#include <optional>

namespace host {
namespace {

const std::vector<DeviceProfile>& profiles() {
    static const std::vector<DeviceProfile>* all = new std::vector<DeviceProfile>{
            // name           board      padded  flex YUV NV12
            {"packed-nv21", "mt6893", false, false},
            {"phone-nv21", "mt6893", true, false},
            {"packed-qcom", "kona", false, true},
            {"phone-qcom", "kona", true, true},
    };
    return *all;
}

std::atomic<const DeviceProfile*>& current() {
    static std::atomic<const DeviceProfile*> profile{&profiles()[0]};
    return profile;
}

__attribute__((constructor)) void selectProfileFromEnvironment() {
    // A board named in HOST_PROPERTIES wins over the profile's board at start.
    std::optional<std::string> board = getProperty("ro.board.platform");
    const char* name = getenv("HOST_DEVICE_PROFILE");
    if (name == nullptr || !selectDeviceProfile(name)) selectDeviceProfile(profiles()[0].name);
    if (board) setProperty("ro.board.platform", *board);
}

}  // namespace

const DeviceProfile& currentDeviceProfile() {
    return *current().load();
}

bool selectDeviceProfile(const std::string& name) {
    for (const DeviceProfile& profile : profiles()) {
        if (profile.name == name) {
            current().store(&profile);
            setProperty("ro.board.platform", profile.boardPlatform);
            return true;
        }
    }
    return false;
}

std::vector<DeviceProfile> deviceProfiles() {
    return profiles();
}

}  // namespace host
