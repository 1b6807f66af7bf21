// The gralloc 4 mapper front of libui: plane layout metadata of host gralloc buffers.

#include <hostcontrol/FaultInjection.h>
#include <ui/GraphicBufferMapper.h>
#include <ui/HostPlaneLayouts.h>

#include "Gralloc.h"

namespace host {
bool applyPlaneLayoutOverride(buffer_handle_t handle, PlaneLayouts* layouts,
                              android::status_t* status);
}

namespace android {

ANDROID_SINGLETON_STATIC_INSTANCE(GraphicBufferMapper)

status_t GraphicBufferMapper::getPlaneLayouts(buffer_handle_t bufferHandle,
                                              std::vector<ui::PlaneLayout>* outPlaneLayouts) {
    if (int32_t fault = host::checkpoint("mapper.getPlaneLayouts")) return fault;
    if (outPlaneLayouts == nullptr) return BAD_VALUE;

    host::GrallocLayout layout;
    const bool known = host::grallocHandleLayout(bufferHandle, &layout);
    std::vector<ui::PlaneLayout> layouts;
    if (known) layouts = host::grallocPlaneLayouts(layout);

    status_t status = known ? NO_ERROR : BAD_VALUE;
    host::applyPlaneLayoutOverride(bufferHandle, &layouts, &status);
    if (status == NO_ERROR) *outPlaneLayouts = std::move(layouts);
    return status;
}

}  // namespace android
