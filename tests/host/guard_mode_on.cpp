// The host test suites run the gralloc in guard mode, so that a buffer overrun faults at once.
#include <ui/HostGrallocGuard.h>

namespace {
const bool gGuardModeOn = (host::setGrallocGuardMode(true), true);
}  // namespace
