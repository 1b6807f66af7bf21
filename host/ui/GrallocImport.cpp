// Imports of buffers by vendor components: the gralloc's own mapping of a handle.

#include <ui/HostGrallocImport.h>

#include "Gralloc.h"

namespace host {

std::unique_ptr<GrallocImport> GrallocImport::map(const native_handle_t* handle) {
    GrallocMapping* mapping = handle != nullptr ? GrallocMapping::map(handle) : nullptr;
    if (mapping == nullptr) return nullptr;
    return std::unique_ptr<GrallocImport>(new GrallocImport(mapping));
}

GrallocImport::~GrallocImport() {
    delete mMapping;
}

const GrallocLayout& GrallocImport::layout() const {
    return mMapping->layout();
}

uint8_t* GrallocImport::base() const {
    return mMapping->base();
}

}  // namespace host
