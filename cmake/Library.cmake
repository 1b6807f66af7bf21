# libnuvranativeutil.so. Only SurfaceNativeUtil_Get, SurfaceNativeUtil_GetVersion and the OpenCL
# function table (wrapper::cl*) are exported; everything else, the statically linked kernels
# included, stays hidden.
# The main unit's file comes first and each unit's static initialisers follow in this order at
# load: SurfaceNativeUtilImpl, PlatformUtil, qcom/FormatConverter, clWrapper. Only the first file of
# each unit defines statics with initialisers.
set(NUVRA_LIBRARY_SOURCES
    surface/SurfaceNativeUtilImpl.cpp
    surface/PropertyGet_Helper.cpp
    surface/JniSupport.cpp
    surface/SurfaceQueries.cpp
    surface/SurfaceConnection.cpp
    surface/SurfaceGeometry.cpp
    surface/PixelConversion.cpp
    surface/FrameProducer.cpp
    surface/ImageLocking.cpp
    surface/P010PlaneLayout.cpp
    surface/JpegSize.cpp
    surface/ImageToByteBuffer.cpp
    surface/FlexibleToNV21.cpp
    surface/YuvPlaneWriter.cpp
    surface/Yuv420Producer.cpp
    surface/HardwareBufferProducer.cpp
    surface/SurfaceToByteBuffer.cpp
)
# The vendor is fixed in PlatformUtil alone; the other units ask it at run time, so their objects
# are compiled once and shared by the vendor variants below.
set(NUVRA_VENDOR_SOURCES
    platform/PlatformUtil.cpp
)

# The GPU converter's units: qcom/FormatConverter (with its buffer allocator) and clWrapper, in
# that order after PlatformUtil.
set(NUVRA_GPU_SOURCES
    qcom/FormatConverter.cpp
    qcom/GraphicBufferAllocator.cpp
    opencl/clWrapper.cpp
)

add_library(nuvra_library_objects OBJECT ${NUVRA_LIBRARY_SOURCES})
target_include_directories(nuvra_library_objects PRIVATE ${CMAKE_SOURCE_DIR})
set_target_properties(nuvra_library_objects PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(nuvra_library_objects PRIVATE
    nuvra_kernels gui ui camera_client android_runtime properties opencl_headers
    android::utils android::cutils android::log java::jni)
nuvra_strict_warnings(nuvra_library_objects)

add_library(nuvra_gpu_objects OBJECT ${NUVRA_GPU_SOURCES})
target_include_directories(nuvra_gpu_objects PRIVATE ${CMAKE_SOURCE_DIR})
set_target_properties(nuvra_gpu_objects PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(nuvra_gpu_objects PRIVATE
    ui vndksupport opencl_headers android::utils android::cutils android::log)
nuvra_strict_warnings(nuvra_gpu_objects)

# Builds libnuvranativeutil.so for one vendor into `outputDir`. The linker lays the units'
# initialisers out in the order of the objects on its command line, so the vendor's objects are
# an object library of their own, listed after the main unit's: a target's own sources would be
# placed before every object library's objects.
function(nuvra_add_library target vendor outputDir)
    add_library(${target}_vendor_objects OBJECT ${NUVRA_VENDOR_SOURCES})
    target_include_directories(${target}_vendor_objects PRIVATE ${CMAKE_SOURCE_DIR})
    target_compile_definitions(${target}_vendor_objects PRIVATE NUVRA_VENDOR_${vendor}=1)
    set_target_properties(${target}_vendor_objects PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_link_libraries(${target}_vendor_objects PRIVATE
        properties android::utils android::cutils android::log)
    nuvra_strict_warnings(${target}_vendor_objects)

    add_library(${target} SHARED $<TARGET_OBJECTS:nuvra_library_objects>
                $<TARGET_OBJECTS:${target}_vendor_objects> $<TARGET_OBJECTS:nuvra_gpu_objects>)
    target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR})
    target_compile_definitions(${target} PRIVATE NUVRA_VENDOR_${vendor}=1)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME nuvranativeutil
        LIBRARY_OUTPUT_DIRECTORY ${outputDir}
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_link_options(${target} PRIVATE -Wl,--exclude-libs,ALL -Wl,--no-undefined
        -Wl,--version-script=${CMAKE_SOURCE_DIR}/surface/libnuvranativeutil.map.txt)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS
        ${CMAKE_SOURCE_DIR}/surface/libnuvranativeutil.map.txt)
    target_link_libraries(${target} PRIVATE
        nuvra_kernels
        gui ui camera_client android_runtime properties vndksupport
        android::utils android::cutils android::log java::jni ${CMAKE_DL_LIBS})
    nuvra_strict_warnings(${target})
endfunction()

# The library as shipped (NUVRA_VENDOR, Qualcomm by default) ...
nuvra_add_library(nuvranativeutil ${NUVRA_VENDOR} ${CMAKE_BINARY_DIR}/lib)

# ... and, for the tests of the other vendors' branches, the K.ORB and MT builds beside it.
option(NUVRA_VENDOR_VARIANTS "Also build the K.ORB and MT variants of the library for tests" ON)
if(NUVRA_VENDOR_VARIANTS)
    nuvra_add_library(nuvranativeutil_korb KORB ${CMAKE_BINARY_DIR}/lib/korb)
    nuvra_add_library(nuvranativeutil_mt MT ${CMAKE_BINARY_DIR}/lib/mt)
endif()
