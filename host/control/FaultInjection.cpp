// Fault injection and the call record shared by every host platform library.

#include <hostcontrol/FaultInjection.h>

#include <algorithm>
#include <map>
#include <mutex>

namespace host {
namespace {

struct Fault {
    int32_t status;
    int remaining;  // < 0: until cleared
};

struct State {
    std::mutex lock;
    std::map<std::string, Fault> faults;
    std::vector<std::string> calls;
};

State& state() {
    static State* s = new State;  // never destroyed: platform calls may run during exit
    return *s;
}

int32_t consumeFaultLocked(State& s, const char* point) {
    auto it = s.faults.find(point);
    if (it == s.faults.end()) return 0;
    int32_t status = it->second.status;
    if (it->second.remaining > 0 && --it->second.remaining == 0) s.faults.erase(it);
    return status;
}

}  // namespace

int32_t checkpoint(const char* point) {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.calls.emplace_back(point);
    return consumeFaultLocked(s, point);
}

int32_t takeFault(const char* point) {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    return consumeFaultLocked(s, point);
}

void injectFault(const std::string& point, int32_t status, int times) {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (times == 0) {
        s.faults.erase(point);
        return;
    }
    s.faults[point] = Fault{status, times};
}

void clearFaults() {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.faults.clear();
}

std::vector<std::string> recordedCalls() {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    return s.calls;
}

void clearRecordedCalls() {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.calls.clear();
}

size_t callCount(const std::string& point) {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    return static_cast<size_t>(std::count(s.calls.begin(), s.calls.end(), point));
}

void resetFaultsAndCalls() {
    clearFaults();
    clearRecordedCalls();
}

}  // namespace host
