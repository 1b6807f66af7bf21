/*
 * Access to the system property reader without linking against it, and the log gate built on it.
 *
 * Every source unit of the library owns one static PropertyGet_Helper and gates each of its log
 * lines through its own copy of isLoggable(), which reads "log.tag.VANTORA_CAMERA" anew on every
 * line, so the threshold can be changed while the process runs.
 */
#pragma once

#include <dlfcn.h>

#define PROPERTY_GET_HELPER_LOG_TAG "PropertyGet_Helper"

// ---- HOST ADAPTATION (the only place that differs between the device and the host build) ----
// On a device the property reader is bionic's __system_property_get in the already loaded
// "libc.so", opened with RTLD_NOLOAD alone. Off-device the host platform's property library holds
// it; glibc also insists on a binding mode next to RTLD_NOLOAD.
#if defined(__ANDROID__)
#define PROPERTY_LIBRARY_NAME "libc.so"
#define PROPERTY_LIBRARY_FLAGS RTLD_NOLOAD
#else
#define PROPERTY_LIBRARY_NAME "libproperties.so"
#define PROPERTY_LIBRARY_FLAGS (RTLD_NOLOAD | RTLD_LAZY)
#endif
// ---- end of host adaptation ----

class PropertyGet_Helper {
public:
    using PropertyGetFn = int (*)(const char* name, char* value);

    // Opens the platform's property library (PROPERTY_LIBRARY_NAME).
    PropertyGet_Helper();
    // Opens `library`, which must already be loaded, with `flags`.
    PropertyGet_Helper(const char* library, int flags);
    ~PropertyGet_Helper();
    PropertyGet_Helper(const PropertyGet_Helper&) = delete;
    PropertyGet_Helper& operator=(const PropertyGet_Helper&) = delete;

    void* handle;               // the property library, or null when it could not be opened
    PropertyGetFn propertyGet;  // its "__system_property_get", or null
};

// The log threshold that the property "log.tag.VANTORA_CAMERA" selects through `helper`: true
// when a line of priority `prio` is to be written.
bool propertyLogGatePasses(const PropertyGet_Helper& helper, int prio);
