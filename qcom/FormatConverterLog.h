/*
 * Logging of the qcom/FormatConverter unit (the converter and its buffer allocator): one tag, one
 * property reader (defined in FormatConverter.cpp, the unit's first file) and one log gate.
 */
#pragma once

#include <android/log.h>

#include "surface/PropertyGet_Helper.h"

#undef LOG_TAG
#define LOG_TAG "NuvraFormatConv"

extern PropertyGet_Helper gFormatConverterPropertyHelper;

static inline bool isLoggable(int prio) {
    return propertyLogGatePasses(gFormatConverterPropertyHelper, prio);
}

#define FCLOG(prio, ...)                                                       \
    do {                                                                       \
        if (isLoggable(prio)) __android_log_print(prio, LOG_TAG, __VA_ARGS__); \
    } while (0)
