/*
 * A buffer imported from its native handle by a vendor component of the host (the OpenCL driver),
 * as a phone's GPU driver imports a gralloc buffer's dma-buf: its own mapping of the buffer's
 * memory, placed as every other mapping (guard mode included), and the layout the handle records.
 */
#pragma once

#include <cutils/native_handle.h>
#include <ui/HostGrallocLayout.h>

#include <memory>

namespace host {

class GrallocMapping;

class GrallocImport {
public:
    // Maps the buffer of a host gralloc handle; null for any other handle or a failed mapping.
    static std::unique_ptr<GrallocImport> map(const native_handle_t* handle);
    ~GrallocImport();

    const GrallocLayout& layout() const;
    uint8_t* base() const;  // the buffer's first byte

private:
    explicit GrallocImport(GrallocMapping* mapping) : mMapping(mapping) {}
    GrallocMapping* mMapping;
};

}  // namespace host
