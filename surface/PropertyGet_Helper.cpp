#include "PropertyGet_Helper.h"

#include <android/log.h>

#include <cstring>

PropertyGet_Helper::PropertyGet_Helper()
    : PropertyGet_Helper(PROPERTY_LIBRARY_NAME, PROPERTY_LIBRARY_FLAGS) {}

PropertyGet_Helper::PropertyGet_Helper(const char* library, int flags)
    : handle(nullptr), propertyGet(nullptr) {
    handle = dlopen(library, flags);
    if (handle == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, PROPERTY_GET_HELPER_LOG_TAG, "Cannot dlopen %s: %s",
                            library, dlerror());
        return;
    }
    propertyGet = reinterpret_cast<PropertyGetFn>(dlsym(handle, "__system_property_get"));
    if (propertyGet == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, PROPERTY_GET_HELPER_LOG_TAG,
                            "Cannot resolve __system_property_get(): %s", dlerror());
        // The handle is closed but kept, so the destructor closes it once more at exit; the
        // gate then behaves as for an unset property.
        dlclose(handle);
    }
}

PropertyGet_Helper::~PropertyGet_Helper() {
    if (handle != nullptr) dlclose(handle);
}

bool propertyLogGatePasses(const PropertyGet_Helper& helper, int prio) {
    // The platform's property value maximum; the reader writes at most 91 bytes and a terminator.
    char value[92] = {};
    int threshold = ANDROID_LOG_DEBUG;
    if (helper.propertyGet != nullptr && helper.propertyGet("log.tag.VANTORA_CAMERA", value) > 0) {
        switch (value[0]) {
            case 'V':
                threshold = ANDROID_LOG_VERBOSE;
                break;
            case 'D':
                threshold = ANDROID_LOG_DEBUG;
                break;
            case 'I':
                threshold = ANDROID_LOG_INFO;
                break;
            case 'W':
                threshold = ANDROID_LOG_WARN;
                break;
            case 'E':
                threshold = ANDROID_LOG_ERROR;
                break;
            case 'A':
                threshold = ANDROID_LOG_FATAL;
                break;
            case 'S':
                return false;
            default:
                threshold = ANDROID_LOG_DEBUG;
                break;
        }
    } else {
        // No reader, or the property is empty or unset: the default value "" applies, which
        // selects the debug threshold.
        const char* defaultValue = "";
        strncpy(value, defaultValue, sizeof(value) - 1);
        value[sizeof(value) - 1] = '\0';
    }
    return prio >= threshold;
}
