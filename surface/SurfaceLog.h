/*
 * Logging of the SurfaceNativeUtilImpl unit (every file under surface/): one tag, one property
 * reader (defined with the unit's other statics in SurfaceNativeUtilImpl.cpp) and one log gate.
 */
#pragma once

#include <android/log.h>

#include "PropertyGet_Helper.h"

#undef LOG_TAG
#define LOG_TAG "NuvraSurfaceUtil"

extern PropertyGet_Helper gSurfaceUtilPropertyHelper;

static inline bool isLoggable(int prio) {
    return propertyLogGatePasses(gSurfaceUtilPropertyHelper, prio);
}

// Writes one line through the unit's gate; the gate is evaluated anew for every line.
#define NLOG(prio, ...)                                                        \
    do {                                                                       \
        if (isLoggable(prio)) __android_log_print(prio, LOG_TAG, __VA_ARGS__); \
    } while (0)
#define NLOGV(...) NLOG(ANDROID_LOG_VERBOSE, __VA_ARGS__)
#define NLOGD(...) NLOG(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define NLOGI(...) NLOG(ANDROID_LOG_INFO, __VA_ARGS__)
#define NLOGW(...) NLOG(ANDROID_LOG_WARN, __VA_ARGS__)
#define NLOGE(...) NLOG(ANDROID_LOG_ERROR, __VA_ARGS__)
