/*
 * What tests can see of a Java android.media.ImageReader from native code (host only).
 */
#pragma once

#include <gui/BufferQueueConsumer.h>
#include <jni.h>

namespace host {

// The slots of the reader's buffer queue by state: an open image holds one ACQUIRED slot, a
// closed one's buffer is FREE again. All zero for a closed reader.
android::BufferQueueConsumer::SlotCounts imageReaderSlotCounts(JNIEnv* env, jobject reader);

// The BufferItems of the reader's pool that no open image holds (maxImages when none is open);
// -1 for a closed reader.
int imageReaderFreeItemCount(JNIEnv* env, jobject reader);

}  // namespace host
