// Creation of a buffer queue, and the listener plumbing between its faces and their users.

#include <gui/BufferQueue.h>
#include <gui/BufferQueueConsumer.h>
#include <gui/BufferQueueCore.h>
#include <gui/BufferQueueProducer.h>
#include <log/log.h>

#undef LOG_TAG
#define LOG_TAG "BufferQueue"

namespace android {

ProducerListener::~ProducerListener() = default;

bool BnProducerListener::needsReleaseNotify() {
    return true;
}

void BnProducerListener::onBuffersDiscarded(const std::vector<int32_t>& /*slots*/) {}

StubProducerListener::~StubProducerListener() = default;

ConsumerListener::~ConsumerListener() = default;

BufferQueue::ProxyConsumerListener::ProxyConsumerListener(
        const wp<ConsumerListener>& consumerListener)
    : mConsumerListener(consumerListener) {}

BufferQueue::ProxyConsumerListener::~ProxyConsumerListener() {}

void BufferQueue::ProxyConsumerListener::onDisconnect() {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onDisconnect();
}

void BufferQueue::ProxyConsumerListener::onFrameAvailable(const BufferItem& item) {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameAvailable(item);
}

void BufferQueue::ProxyConsumerListener::onFrameReplaced(const BufferItem& item) {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameReplaced(item);
}

void BufferQueue::ProxyConsumerListener::onBuffersReleased() {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onBuffersReleased();
}

void BufferQueue::ProxyConsumerListener::onSidebandStreamChanged() {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onSidebandStreamChanged();
}

void BufferQueue::ProxyConsumerListener::onFrameDequeued(const uint64_t bufferId) {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameDequeued(bufferId);
}

void BufferQueue::ProxyConsumerListener::onFrameCancelled(const uint64_t bufferId) {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameCancelled(bufferId);
}

void BufferQueue::ProxyConsumerListener::onFrameDetached(const uint64_t bufferId) {
    sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameDetached(bufferId);
}

void BufferQueue::createBufferQueue(sp<IGraphicBufferProducer>* outProducer,
                                    sp<IGraphicBufferConsumer>* outConsumer,
                                    bool /*consumerIsSurfaceFlinger*/) {
    LOG_ALWAYS_FATAL_IF(outProducer == nullptr, "BufferQueue: outProducer must not be NULL");
    LOG_ALWAYS_FATAL_IF(outConsumer == nullptr, "BufferQueue: outConsumer must not be NULL");

    sp<BufferQueueCore> core(new BufferQueueCore());
    sp<IGraphicBufferProducer> producer(new BufferQueueProducer(core));
    sp<IGraphicBufferConsumer> consumer(new BufferQueueConsumer(core));

    *outProducer = producer;
    *outConsumer = consumer;
}

}  // namespace android
