/*
 * Fault injection and the call record of the host platform.
 *
 * Every platform entry point that the library can reach calls host::checkpoint() with the name of
 * the call before doing its work. The checkpoint appends the name to the process-wide call record
 * and, when a fault is armed for that name, returns the armed status, which the entry point then
 * returns instead of doing its work. Tests arm faults to reach failure paths and read the record
 * to see which platform calls were made, in which order, and which were not.
 *
 * Point names are "<object>.<call>", with window requests by their public constant name:
 *   window.query.WIDTH, window.query.FORMAT, ...        ANativeWindow::query
 *   window.perform.SET_BUFFER_COUNT, ...                 ANativeWindow::perform
 *   window.dequeueBuffer, window.queueBuffer, window.cancelBuffer
 *   surface.connect, surface.setDequeueTimeout, surface.getLastQueuedBuffer, ...
 *   buffer.lock, buffer.lockYCbCr, buffer.unlock, ...    GraphicBuffer
 *   camera.getRotationTransform
 *   jni.android_view_Surface_getNativeWindow, ...
 * Each component's header lists the names it uses.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace host {

// Records the call `point` and returns the status armed for it, or 0 (OK) when none is.
int32_t checkpoint(const char* point);

// Returns the status armed for `point` and uses it up as checkpoint() does, but records no call:
// for points that change how a call that already passed its own checkpoint succeeds (e.g.
// buffer.lock.nullAddress), so that the call record lists only the calls made.
int32_t takeFault(const char* point);

// Arms `point` to fail with `status` on its next `times` calls (times < 0: until cleared).
void injectFault(const std::string& point, int32_t status, int times = 1);
// Disarms every fault.
void clearFaults();

// The call record, oldest first.
std::vector<std::string> recordedCalls();
void clearRecordedCalls();
// Number of recorded calls named `point`.
size_t callCount(const std::string& point);

// Clears faults and the call record together; tests call it between cases.
void resetFaultsAndCalls();

}  // namespace host
