# Debian's builds of Android's host utility libraries (liblog, libcutils, libutils) and the
# platform's system headers, as imported targets. Their headers live under /usr/include/android,
# which holds them by their Android paths (<log/log.h>, <utils/RefBase.h>, <system/graphics.h>).

set(ANDROID_HOST_INCLUDE_DIR /usr/include/android)
set(ANDROID_HOST_LIB_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
if(NOT CMAKE_LIBRARY_ARCHITECTURE)
    set(ANDROID_HOST_LIB_DIR /usr/lib/x86_64-linux-gnu/android)
endif()

foreach(lib log cutils utils)
    find_library(ANDROID_${lib}_LIBRARY NAMES ${lib} PATHS ${ANDROID_HOST_LIB_DIR} NO_DEFAULT_PATH
                 REQUIRED)
    add_library(android::${lib} SHARED IMPORTED GLOBAL)
    set_target_properties(android::${lib} PROPERTIES
        IMPORTED_LOCATION ${ANDROID_${lib}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_HOST_INCLUDE_DIR})
endforeach()
set_property(TARGET android::utils APPEND PROPERTY INTERFACE_LINK_LIBRARIES android::cutils
             android::log)
set_property(TARGET android::cutils APPEND PROPERTY INTERFACE_LINK_LIBRARIES android::log)

# Everything that links the Android libraries finds them at run time without LD_LIBRARY_PATH.
list(APPEND CMAKE_BUILD_RPATH ${ANDROID_HOST_LIB_DIR})
list(APPEND CMAKE_INSTALL_RPATH ${ANDROID_HOST_LIB_DIR})
