/*
 * The device the host platform pretends to be.
 *
 * One profile fixes the board name ("ro.board.platform"), how the gralloc lays buffers out
 * (packed: stride = width wherever the format allows; phone: padded strides and scanlines as a
 * phone's gralloc pads them) and the chroma order of flexible YUV (YCbCr_420_888) buffers.
 * The profile is chosen at load from HOST_DEVICE_PROFILE (default "packed-nv21") and can be
 * switched by tests and tools; switching sets "ro.board.platform" to the profile's board.
 */
#pragma once

#include <string>
#include <vector>

namespace host {

struct DeviceProfile {
    std::string name;
    std::string boardPlatform;  // value of "ro.board.platform"
    bool paddedLayouts;         // phone gralloc padding rather than packed layouts
    bool flexYuvIsNv12;         // YCbCr_420_888 buffers hold Cb before Cr
};

const DeviceProfile& currentDeviceProfile();
// Selects a profile by name; false when there is no such profile (nothing changes then).
bool selectDeviceProfile(const std::string& name);
std::vector<DeviceProfile> deviceProfiles();

}  // namespace host
