# OpenJDK 17: javac for the platform's Java classes, and the JNI invocation API (libjvm) with
# which tests and tools start a real JVM in-process.
if(NOT DEFINED ENV{JAVA_HOME} AND EXISTS /usr/lib/jvm/java-17-openjdk-amd64)
    set(ENV{JAVA_HOME} /usr/lib/jvm/java-17-openjdk-amd64)
endif()
find_package(Java 17 REQUIRED COMPONENTS Development)
find_package(JNI 17 REQUIRED)
include(UseJava)

get_filename_component(NUVRA_JVM_LIB_DIR ${JAVA_JVM_LIBRARY} DIRECTORY)
add_library(java::jvm SHARED IMPORTED GLOBAL)
set_target_properties(java::jvm PROPERTIES
    IMPORTED_LOCATION ${JAVA_JVM_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES "${JNI_INCLUDE_DIRS}")
add_library(java::jni INTERFACE IMPORTED GLOBAL)
set_target_properties(java::jni PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${JNI_INCLUDE_DIRS}")
list(APPEND CMAKE_BUILD_RPATH ${NUVRA_JVM_LIB_DIR})
