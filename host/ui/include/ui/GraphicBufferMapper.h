/*
 * android::GraphicBufferMapper: the process-wide front of the gralloc mapper. On the host the
 * mapper is a gralloc 4 mapper over the host gralloc; it answers the metadata queries that
 * callers outside libui make. getPlaneLayouts describes a buffer's planes as a gralloc 4 mapper
 * does (see <ui/HostPlaneLayouts.h> for the host's answers per format and how tests replace
 * them).
 *
 * GraphicBuffer's lock and unlock calls reach the host gralloc directly rather than through this
 * class (see host/README.md).
 *
 * Fault point (host::checkpoint):
 *   mapper.getPlaneLayouts   getPlaneLayouts fails with the armed status, *outPlaneLayouts
 *                            untouched
 */
#pragma once

#include <cutils/native_handle.h>
#include <ui/GraphicTypes.h>
#include <utils/Errors.h>
#include <utils/Singleton.h>

#include <vector>

namespace android {

class GraphicBufferMapper : public Singleton<GraphicBufferMapper> {
public:
    enum Version {
        GRALLOC_2,
        GRALLOC_3,
        GRALLOC_4,
        GRALLOC_5,
    };

    static inline GraphicBufferMapper& get() { return getInstance(); }

    // The planes of a buffer: OK with the layouts, BAD_VALUE for a null handle or one the
    // gralloc did not allocate.
    status_t getPlaneLayouts(buffer_handle_t bufferHandle,
                             std::vector<ui::PlaneLayout>* outPlaneLayouts);

    Version getMapperVersion() const { return GRALLOC_4; }

private:
    friend class Singleton<GraphicBufferMapper>;
    GraphicBufferMapper() = default;
};

}  // namespace android
