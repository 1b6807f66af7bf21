# libnuvranativeutil.so. Only SurfaceNativeUtil_Get and SurfaceNativeUtil_GetVersion are
# exported; everything else, the statically linked kernels included, stays hidden.
set(NUVRA_LIBRARY_SOURCES
    surface/SurfaceNativeUtilImpl.cpp
    platform/PlatformUtil.cpp
)

add_library(nuvranativeutil SHARED ${NUVRA_LIBRARY_SOURCES})
target_include_directories(nuvranativeutil PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_definitions(nuvranativeutil PRIVATE NUVRA_VENDOR_${NUVRA_VENDOR}=1)
set_target_properties(nuvranativeutil PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
target_link_options(nuvranativeutil PRIVATE -Wl,--exclude-libs,ALL -Wl,--no-undefined)
target_link_libraries(nuvranativeutil PRIVATE
    nuvra_kernels
    gui ui camera_client android_runtime properties
    android::utils android::cutils android::log java::jni ${CMAKE_DL_LIBS})
nuvra_strict_warnings(nuvranativeutil)
