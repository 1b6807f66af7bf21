/*
 * A Java VM in the host process, as an Android app process has one.
 *
 * startJvm() starts OpenJDK 17 in-process through the JNI invocation API with the jar of the
 * host platform's Java classes (android.view.Surface, ...) on the class path, and registers the
 * native methods of libandroid_runtime. A process has at most one VM, which lives until exit:
 * the JVM cannot be started again once destroyed, so it is never destroyed.
 *
 * Everything the VM prints through its vfprintf hook (VM warnings, -Xcheck:jni reports such as
 * "WARNING in native method: ...", -verbose output) is captured line by line, and echoed to the
 * stream the VM meant unless echo is off. Tests treat any captured line as a failure.
 *
 * The jar is the one built with this tree; HOST_PLATFORM_JAR in the environment names another
 * (an installed copy, for tools run outside the build tree). Likewise java.library.path, where
 * the platform classes load their JNI libraries from (System.loadLibrary("media_jni")), is the
 * build tree's library directory unless HOST_PLATFORM_LIBRARY_PATH names another.
 */
#pragma once

#include <jni.h>

#include <string>
#include <vector>

namespace host {

struct JvmOptions {
    // -Xcheck:jni: the VM checks every JNI call and reports misuse.
    bool checkJni = true;
    // Further class path entries, after the platform jar.
    std::vector<std::string> classPath;
    // Further JavaVMOption strings, e.g. "-Xmx512m" or "-Dname=value".
    std::vector<std::string> extra;
};

// Starts the VM on the first call and returns the calling thread's JNIEnv. Later calls return
// the running VM's JNIEnv for the calling thread, attaching the thread if needed (their options
// are ignored). Aborts the process when the VM cannot be started.
JNIEnv* startJvm(const JvmOptions& options = JvmOptions());

// The running VM, or null before startJvm().
JavaVM* javaVm();

// The calling thread's JNIEnv, attaching the thread (under its pthread name) if needed; null
// before startJvm(). A thread attached here is detached when it exits.
JNIEnv* jniEnv();

// The options the VM was started with (empty before startJvm()).
std::vector<std::string> jvmOptionStrings();

// The jar of the platform's Java classes that startJvm() puts on the class path.
std::string platformJarPath();
// The java.library.path that startJvm() gives the VM.
std::string platformLibraryPath();

// Lines the VM printed, oldest first (without their line ends).
std::vector<std::string> jvmWarnings();
void clearJvmWarnings();
// Whether captured lines are also written to the VM's stream (default true).
void setJvmEcho(bool echo);

}  // namespace host
