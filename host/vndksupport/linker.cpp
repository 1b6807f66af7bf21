// android_load_sphal_library over dlopen, with the sphal namespace as a search path.

#define LOG_TAG "vndksupport"

#include <dlfcn.h>
#include <hostcontrol/FaultInjection.h>
#include <hostvndksupport/SphalNamespace.h>
#include <log/log.h>
#include <vndksupport/linker.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace host {
namespace {

struct Namespace {
    std::mutex lock;
    std::vector<std::string> directories;
};

Namespace& sphal() {
    static Namespace* ns = new Namespace;  // never destroyed: libraries may load during exit
    return *ns;
}

std::vector<std::string> splitPath(const char* path) {
    std::vector<std::string> directories;
    std::string current;
    for (const char* p = path;; ++p) {
        if (*p == ':' || *p == '\0') {
            if (!current.empty()) directories.push_back(current);
            current.clear();
            if (*p == '\0') break;
        } else {
            current += *p;
        }
    }
    return directories;
}

__attribute__((constructor)) void readSphalPathFromEnvironment() {
    const char* path = getenv("HOST_SPHAL_LIBRARY_PATH");
    if (path != nullptr) setSphalSearchPath(splitPath(path));
}

}  // namespace

void setSphalSearchPath(const std::vector<std::string>& directories) {
    Namespace& ns = sphal();
    std::lock_guard<std::mutex> guard(ns.lock);
    ns.directories = directories;
}

std::vector<std::string> sphalSearchPath() {
    Namespace& ns = sphal();
    std::lock_guard<std::mutex> guard(ns.lock);
    return ns.directories;
}

}  // namespace host

extern "C" {

int android_is_in_vendor_process(void) {
    return 0;
}

void* android_load_sphal_library(const char* name, int flag) {
    if (host::checkpoint("vndksupport.android_load_sphal_library") != 0) return nullptr;
    std::vector<std::string> directories = host::sphalSearchPath();
    void* handle = nullptr;
    if (directories.empty() || name == nullptr || strchr(name, '/') != nullptr) {
        handle = dlopen(name, flag);
    } else {
        for (const std::string& directory : directories) {
            handle = dlopen((directory + "/" + name).c_str(), flag);
            if (handle != nullptr) break;
        }
    }
    if (handle == nullptr) {
        // As on a device, the error line takes the loader's message: dlerror() is clear
        // afterwards.
        const char* error = dlerror();
        ALOGE("Could not load %s from %s namespace: %s.", name != nullptr ? name : "(null)",
              "sphal", error != nullptr ? error : "");
    }
    return handle;
}

int android_unload_sphal_library(void* handle) {
    return dlclose(handle);
}

}  // extern "C"
