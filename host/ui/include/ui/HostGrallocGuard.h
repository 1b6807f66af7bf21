/*
 * Overrun detection for the host gralloc, for tests and tools.
 *
 * In guard mode every buffer allocated from then on is mapped so that the byte right after its
 * last byte (layout.size) is the first byte of an inaccessible page: a write or read one byte past
 * the buffer faults at once, wherever the buffer's size falls within a page. Every mapping of the
 * buffer (clones, imports, consumers) is placed the same way. Buffers allocated before the mode
 * changes keep the placement they were made with.
 *
 * The mode starts from HOST_GRALLOC_GUARD in the environment ("1" on, anything else or unset
 * off); the test suites turn it on.
 */
#pragma once

#include <stdint.h>

#include <vector>

namespace android {
class GraphicBuffer;
}

namespace host {

void setGrallocGuardMode(bool on);
bool grallocGuardMode();

// The whole memory of a buffer, padding included: its layout.size bytes from the buffer's first
// byte, as they are now (no lock, no fault point, no call recorded). Empty for a buffer without
// host gralloc memory. Tests compare it with what they expect in the padding to catch writes
// outside a buffer's image data.
std::vector<uint8_t> readBufferMemory(const android::GraphicBuffer& buffer);

}  // namespace host
