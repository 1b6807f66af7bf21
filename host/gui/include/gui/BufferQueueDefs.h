// Constants and the slot array shared by the two faces of a buffer queue.
#pragma once

#include <gui/BufferSlot.h>

namespace android {
namespace BufferQueueDefs {

// BufferQueue will keep track of at most this value of buffers. Attempts at runtime to
// increase the number of buffers past this will fail.
static constexpr int NUM_BUFFER_SLOTS = 64;

typedef BufferSlot SlotsType[NUM_BUFFER_SLOTS];

}  // namespace BufferQueueDefs
}  // namespace android
