// The host's system property store: a process-wide map behind bionic's __system_property_get
// and libcutils' property_get.

#include <cutils/properties.h>
#include <hostproperties/HostProperties.h>
#include <sys/system_properties.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace {

struct Store {
    std::mutex lock;
    std::map<std::string, std::string> values;
};

Store& store() {
    static Store* s = new Store;  // never destroyed: readers may run during exit
    return *s;
}

void seedFromEnvironment(std::map<std::string, std::string>& values) {
    const char* env = getenv("HOST_PROPERTIES");
    if (env == nullptr) return;
    std::string all(env);
    size_t start = 0;
    while (start <= all.size()) {
        size_t end = all.find(';', start);
        if (end == std::string::npos) end = all.size();
        std::string entry = all.substr(start, end - start);
        size_t eq = entry.find('=');
        if (eq != std::string::npos && eq > 0 && entry.size() - eq - 1 < PROP_VALUE_MAX) {
            values[entry.substr(0, eq)] = entry.substr(eq + 1);
        }
        start = end + 1;
    }
}

__attribute__((constructor)) void seedAtLoad() {
    std::lock_guard<std::mutex> guard(store().lock);
    seedFromEnvironment(store().values);
}

}  // namespace

extern "C" int __system_property_get(const char* name, char* value) {
    value[0] = '\0';
    if (name == nullptr) return 0;
    std::lock_guard<std::mutex> guard(store().lock);
    auto it = store().values.find(name);
    if (it == store().values.end()) return 0;
    size_t len = it->second.size();
    memcpy(value, it->second.c_str(), len + 1);
    return static_cast<int>(len);
}

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    int len = __system_property_get(key, value);
    if (len > 0) return len;
    if (default_value != nullptr) {
        len = static_cast<int>(strnlen(default_value, PROPERTY_VALUE_MAX - 1));
        memcpy(value, default_value, len);
        value[len] = '\0';
    }
    return len;
}

namespace host {

bool setProperty(const std::string& name, const std::string& value) {
    if (name.empty() || value.size() >= PROP_VALUE_MAX) return false;
    std::lock_guard<std::mutex> guard(store().lock);
    store().values[name] = value;
    return true;
}

void clearProperty(const std::string& name) {
    std::lock_guard<std::mutex> guard(store().lock);
    store().values.erase(name);
}

std::optional<std::string> getProperty(const std::string& name) {
    std::lock_guard<std::mutex> guard(store().lock);
    auto it = store().values.find(name);
    if (it == store().values.end()) return std::nullopt;
    return it->second;
}

void resetProperties() {
    std::lock_guard<std::mutex> guard(store().lock);
    store().values.clear();
    seedFromEnvironment(store().values);
}

}  // namespace host
