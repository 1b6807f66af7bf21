#include "PlatformUtil.h"

#include <android/log.h>
#include <cutils/properties.h>

#include <string>
#include <unordered_set>

#include "surface/PropertyGet_Helper.h"

#undef LOG_TAG
#define LOG_TAG "PlatformUtil"

static PropertyGet_Helper gPlatformUtilPropertyHelper;

static inline bool isLoggable(int prio) {
    return propertyLogGatePasses(gPlatformUtilPropertyHelper, prio);
}

#define PLOG(prio, ...)                                                        \
    do {                                                                       \
        if (isLoggable(prio)) __android_log_print(prio, LOG_TAG, __VA_ARGS__); \
    } while (0)

// The vendor is chosen when the library is built (NUVRA_VENDOR in CMake). Everything shipped is
// the Qualcomm build; the K.ORB and MT builds exist so that the callers' branches for those
// vendors are compiled and tested.
#if defined(NUVRA_VENDOR_KORB)
static constexpr PlatformVendor kBuildVendor = VENDOR_K_ORB;
#define VENDOR_NAME "K.ORB"
#elif defined(NUVRA_VENDOR_MT)
static constexpr PlatformVendor kBuildVendor = VENDOR_MT;
#define VENDOR_NAME "MT"
#else
static constexpr PlatformVendor kBuildVendor = VENDOR_QCOM;
#define VENDOR_NAME "QCOM"
#endif

// The YUV-order cache: plain bytes without a lock. Two threads making the first call at once both
// compute (and log) the same answer, which is harmless.
static YuvOrder gYuvOrder = YUV_ORDER_NV21;
static uint8_t gYuvOrderComputed = 0;

PlatformVendor PlatformUtil::getCurrentVendor() {
    PLOG(ANDROID_LOG_VERBOSE, "%s: Current vendor is " VENDOR_NAME, "getCurrentVendor");
    return kBuildVendor;
}

YuvOrder PlatformUtil::getCurrentYuvOrder() {
    if (gYuvOrderComputed) return gYuvOrder;

    // The property value maximum (92) and one byte that stays zero.
    char platform[PROPERTY_VALUE_MAX + 1] = {};
    property_get("ro.board.platform", platform, "");
    if (platform[0] != '\0') {
        // The Qualcomm boards whose camera YUV is NV12-ordered; matched exactly.
        std::unordered_set<std::string> nv12Platforms;
        nv12Platforms.max_load_factor(1.0f);
        for (const char* name : {"msmnile", "kona", "lahaina", "sm6150", "lito", "atoll"}) {
            nv12Platforms.insert(name);
        }
        if (nv12Platforms.count(std::string(platform)) != 0) gYuvOrder = YUV_ORDER_NV12;
    }
    if (gYuvOrder == YUV_ORDER_NV12) {
        PLOG(ANDROID_LOG_DEBUG, "Current YUV order is NV12");
    } else {
        PLOG(ANDROID_LOG_DEBUG, "Current YUV order is NV21");
    }
    gYuvOrderComputed = 1;
    return gYuvOrder;
}
