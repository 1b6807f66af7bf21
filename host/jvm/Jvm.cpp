// Starts the JVM in-process, captures what it prints, and attaches threads to it.

#define LOG_TAG "HostJvm"

#include <android_runtime/AndroidRuntime.h>
#include <hostjvm/Jvm.h>
#include <log/log.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#ifndef HOST_PLATFORM_LIBRARY_DIR
#error "HOST_PLATFORM_LIBRARY_DIR must name the directory of the platform's JNI libraries"
#endif
#ifndef HOST_PLATFORM_JAR
#error "HOST_PLATFORM_JAR must name the jar of the platform's Java classes"
#endif

namespace host {
namespace {

struct Capture {
    std::mutex lock;
    std::vector<std::string> lines;
    std::string partial;  // text after the last line end
    std::atomic<bool> echo{true};
};

Capture& capture() {
    static Capture* c = new Capture;  // never destroyed: the VM may print during exit
    return *c;
}

// The VM's vfprintf hook: every line the VM prints comes through here.
jint JNICALL captureVfprintf(FILE* stream, const char* format, va_list args) {
    char small[512];
    va_list copy;
    va_copy(copy, args);
    int length = vsnprintf(small, sizeof(small), format, copy);
    va_end(copy);
    if (length < 0) return length;
    std::string text;
    if (static_cast<size_t>(length) < sizeof(small)) {
        text.assign(small, static_cast<size_t>(length));
    } else {
        text.resize(static_cast<size_t>(length));
        va_copy(copy, args);
        vsnprintf(&text[0], text.size() + 1, format, copy);
        va_end(copy);
    }

    Capture& c = capture();
    {
        std::lock_guard<std::mutex> guard(c.lock);
        c.partial += text;
        size_t start = 0;
        for (size_t end; (end = c.partial.find('\n', start)) != std::string::npos;
             start = end + 1) {
            c.lines.push_back(c.partial.substr(start, end - start));
        }
        c.partial.erase(0, start);
    }
    if (c.echo.load(std::memory_order_relaxed)) {
        fwrite(text.data(), 1, text.size(), stream);
        fflush(stream);
    }
    return length;
}

struct Vm {
    std::mutex startLock;
    std::atomic<JavaVM*> vm{nullptr};
    std::vector<std::string> options;
};

Vm& theVm() {
    static Vm* vm = new Vm;  // never destroyed: the VM outlives static destruction
    return *vm;
}

// Detaches, at thread exit, a thread that jniEnv() attached.
struct Attachment {
    bool attached = false;
    ~Attachment() {
        JavaVM* vm = theVm().vm.load();
        if (attached && vm != nullptr) vm->DetachCurrentThread();
    }
};

thread_local Attachment tAttachment;

std::string joinPath(const std::vector<std::string>& entries) {
    std::string path;
    for (const std::string& entry : entries) {
        if (!path.empty()) path += ':';
        path += entry;
    }
    return path;
}

}  // namespace

std::string platformJarPath() {
    const char* jar = getenv("HOST_PLATFORM_JAR");
    return (jar != nullptr && *jar != '\0') ? jar : HOST_PLATFORM_JAR;
}

std::string platformLibraryPath() {
    const char* path = getenv("HOST_PLATFORM_LIBRARY_PATH");
    return (path != nullptr && *path != '\0') ? path : HOST_PLATFORM_LIBRARY_DIR;
}

JNIEnv* startJvm(const JvmOptions& options) {
    Vm& vm = theVm();
    {
        std::lock_guard<std::mutex> guard(vm.startLock);
        if (vm.vm.load() == nullptr) {
            std::string jar = platformJarPath();
            LOG_ALWAYS_FATAL_IF(access(jar.c_str(), R_OK) != 0,
                                "The platform's Java classes are missing: cannot read %s",
                                jar.c_str());
            std::vector<std::string> classPath{jar};
            classPath.insert(classPath.end(), options.classPath.begin(), options.classPath.end());

            std::vector<std::string> strings{"-Djava.class.path=" + joinPath(classPath),
                                             "-Djava.library.path=" + platformLibraryPath()};
            if (options.checkJni) strings.push_back("-Xcheck:jni");
            // The host process keeps its own signal dispositions (SIGINT, SIGTERM, SIGQUIT):
            // the VM runs inside test and tool processes that must stop as they normally do.
            strings.push_back("-Xrs");
            strings.insert(strings.end(), options.extra.begin(), options.extra.end());

            std::vector<JavaVMOption> vmOptions;
            for (const std::string& s : strings) {
                vmOptions.push_back(JavaVMOption{const_cast<char*>(s.c_str()), nullptr});
            }
            vmOptions.push_back(JavaVMOption{const_cast<char*>("vfprintf"),
                                             reinterpret_cast<void*>(&captureVfprintf)});

            JavaVMInitArgs args{};
            args.version = JNI_VERSION_1_6;
            args.nOptions = static_cast<jint>(vmOptions.size());
            args.options = vmOptions.data();
            args.ignoreUnrecognized = JNI_FALSE;

            JavaVM* created = nullptr;
            JNIEnv* env = nullptr;
            jint rc = JNI_CreateJavaVM(&created, reinterpret_cast<void**>(&env), &args);
            LOG_ALWAYS_FATAL_IF(rc != JNI_OK, "JNI_CreateJavaVM failed (%d)", rc);

            int registered = android::AndroidRuntime::startReg(env);
            LOG_ALWAYS_FATAL_IF(registered < 0,
                                "Cannot register the platform's native methods (classes from %s)",
                                jar.c_str());
            vm.options = strings;
            vm.vm.store(created);
            return env;
        }
    }
    return jniEnv();
}

JavaVM* javaVm() {
    return theVm().vm.load();
}

JNIEnv* jniEnv() {
    JavaVM* vm = theVm().vm.load();
    if (vm == nullptr) return nullptr;
    JNIEnv* env = nullptr;
    jint rc = vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6);
    if (rc == JNI_OK) return env;
    LOG_ALWAYS_FATAL_IF(rc != JNI_EDETACHED, "JavaVM::GetEnv failed (%d)", rc);

    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    JavaVMAttachArgs attachArgs{JNI_VERSION_1_6, name, nullptr};
    rc = vm->AttachCurrentThread(reinterpret_cast<void**>(&env), &attachArgs);
    LOG_ALWAYS_FATAL_IF(rc != JNI_OK, "JavaVM::AttachCurrentThread failed (%d)", rc);
    tAttachment.attached = true;
    return env;
}

std::vector<std::string> jvmOptionStrings() {
    Vm& vm = theVm();
    std::lock_guard<std::mutex> guard(vm.startLock);
    return vm.options;
}

std::vector<std::string> jvmWarnings() {
    Capture& c = capture();
    std::lock_guard<std::mutex> guard(c.lock);
    std::vector<std::string> lines = c.lines;
    if (!c.partial.empty()) lines.push_back(c.partial);  // a line still being printed
    return lines;
}

void clearJvmWarnings() {
    Capture& c = capture();
    std::lock_guard<std::mutex> guard(c.lock);
    c.lines.clear();
    c.partial.clear();
}

void setJvmEcho(bool echo) {
    capture().echo = echo;
}

}  // namespace host
