// The run-time OpenCL loader: the vendor library opened through the sphal namespace (or the
// default one) and its entry points resolved by name.

#include "clWrapper.h"

#include <android/log.h>
#include <dlfcn.h>
#include <vndksupport/linker.h>

#include <string>
#include <vector>

#include "surface/PropertyGet_Helper.h"

#undef LOG_TAG
#define LOG_TAG "NuvraCLWrapper"

static PropertyGet_Helper gClWrapperPropertyHelper;

static inline bool isLoggable(int prio) {
    return propertyLogGatePasses(gClWrapperPropertyHelper, prio);
}

#define CLLOG(prio, ...)                                                       \
    do {                                                                       \
        if (isLoggable(prio)) __android_log_print(prio, LOG_TAG, __VA_ARGS__); \
    } while (0)

namespace wrapper {

void* libopencl = nullptr;

#define X(name) decltype(&::name) name = nullptr;
#include "clFunctions.def"
#undef X

void loadOpenCl() {
    // The candidate names, in the order they are tried; built anew on every load.
    std::vector<std::string> names{"libOpenCL.so", "libOpenCL_system.so"};
    for (const std::string& name : names) {
        libopencl = android_load_sphal_library(name.c_str(), RTLD_NOW | RTLD_GLOBAL);
        if (libopencl != nullptr) break;
        CLLOG(ANDROID_LOG_WARN, "Unable to load %s from sphal", name.c_str());
        libopencl = dlopen(name.c_str(), RTLD_NOW | RTLD_GLOBAL);
        if (libopencl != nullptr) break;
        CLLOG(ANDROID_LOG_WARN, "Unable to load %s from default", name.c_str());
    }
    if (libopencl == nullptr) {
        __android_log_assert("libopencl == nullptr", LOG_TAG, "Unable to load OpenCL.");
    }

    // Every entry point is required; the first one missing ends the process.
#define X(name)                                                                           \
    name = reinterpret_cast<decltype(&::name)>(dlsym(libopencl, #name));                  \
    if (name == nullptr) {                                                                \
        __android_log_assert(#name " == nullptr", LOG_TAG, "Fail to find symbol " #name); \
    }
#include "clFunctions.def"
#undef X

    CLLOG(ANDROID_LOG_INFO, "OpenCL loaded.");
}

void unloadOpenCl() {
    if (libopencl == nullptr) return;
    android_unload_sphal_library(libopencl);
    libopencl = nullptr;
}

}  // namespace wrapper
