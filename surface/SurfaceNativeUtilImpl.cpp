// The library's entry points and the static state of the SurfaceNativeUtilImpl unit.
//
// The statics below are constructed at load in this order (and destroyed in reverse): the unit's
// property reader, gLock, then the one SurfaceNativeUtilImpl. This file is linked first so that
// its initialisers run before those of the other units.

#include "SurfaceNativeUtilImpl.h"

#include <utils/Mutex.h>

#include "SurfaceLog.h"

#define EXPORT __attribute__((visibility("default")))

PropertyGet_Helper gSurfaceUtilPropertyHelper;

// Guards the lazily filled Java field cache of the image helpers; nothing else takes it.
android::Mutex gLock;

static SurfaceNativeUtilImpl gSurfaceNativeUtil;

SurfaceNativeUtilImpl::SurfaceNativeUtilImpl() {
    NLOGV("SurfaceNativeUtil created.");
}

SurfaceNativeUtilImpl::~SurfaceNativeUtilImpl() {
    NLOGV("SurfaceNativeUtil destroyed.");
}

extern "C" EXPORT SurfaceNativeUtil* SurfaceNativeUtil_Get() {
    return &gSurfaceNativeUtil;
}

extern "C" EXPORT int SurfaceNativeUtil_GetVersion() {
    return SURFACE_NATIVE_UTIL_VERSION;
}
