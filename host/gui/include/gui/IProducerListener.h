/*
 * The producer's listener: the queue tells the producer when the consumer released a buffer
 * and when free buffers were discarded. Calls are made without the queue's lock held, on the
 * thread of the consumer call that caused them.
 */
#pragma once

#include <utils/RefBase.h>

#include <vector>

namespace android {

class ProducerListener : public virtual RefBase {
public:
    ProducerListener() {}
    virtual ~ProducerListener();

    // onBufferReleased is called from IGraphicBufferConsumer::releaseBuffer to notify the
    // producer that a new buffer is free and ready to be dequeued.
    //
    // This is called without any lock held and can be called concurrently by multiple
    // threads.
    virtual void onBufferReleased() = 0;
    virtual bool needsReleaseNotify() = 0;
    // onBuffersDiscarded is called from IGraphicBufferConsumer::discardFreeBuffers to notify
    // the producer that certain free buffers are discarded by the consumer.
    virtual void onBuffersDiscarded(const std::vector<int32_t>& slots) = 0;
};

class IProducerListener : public ProducerListener {};

// A listener that wants release notifications; subclasses implement onBufferReleased.
class BnProducerListener : public IProducerListener {
public:
    bool needsReleaseNotify() override;
    void onBuffersDiscarded(const std::vector<int32_t>& slots) override;
};

class StubProducerListener : public BnProducerListener {
public:
    ~StubProducerListener() override;
    void onBufferReleased() override {}
    bool needsReleaseNotify() override { return false; }
};

}  // namespace android
