// The engine underneath: PoCL, opened privately so that neither its symbols nor the ICD loader's
// take the place of the driver's entry points, nor the driver's of theirs.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Driver.h"

namespace hostcl {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// AddressSanitizer and ThreadSanitizer refuse RTLD_DEEPBIND; PoCL has no undefined OpenCL symbols,
// so RTLD_LOCAL alone keeps the two apart there.
constexpr int kPoclOpenFlags = RTLD_NOW | RTLD_LOCAL;
#else
constexpr int kPoclOpenFlags = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;
#endif

using IcdGetPlatformIDs = cl_int(CL_API_CALL*)(cl_uint, cl_platform_id*, cl_uint*);

const _cl_icd_dispatch* openPocl() {
    void* handle = dlopen("libpocl.so.2", kPoclOpenFlags);
    if (handle == nullptr) {
        fprintf(stderr, "host OpenCL driver: cannot open PoCL: %s\n", dlerror());
        abort();
    }
    // PoCL exports its ICD entry under its own prefix; the ICD loader finds it the same way.
    auto getPlatforms =
            reinterpret_cast<IcdGetPlatformIDs>(dlsym(handle, "POclIcdGetPlatformIDsKHR"));
    cl_platform_id platform = nullptr;
    cl_uint count = 0;
    if (getPlatforms == nullptr || getPlatforms(1, &platform, &count) != CL_SUCCESS || count == 0) {
        fprintf(stderr, "host OpenCL driver: PoCL offers no platform\n");
        abort();
    }
    // Every ICD object starts with its dispatch table.
    return *reinterpret_cast<const _cl_icd_dispatch* const*>(platform);
}

}  // namespace

const _cl_icd_dispatch& pocl() {
    static const _cl_icd_dispatch* table = openPocl();
    return *table;
}

cl_int answer(const void* value, size_t valueSize, size_t size, void* out, size_t* sizeRet) {
    if (sizeRet != nullptr) *sizeRet = valueSize;
    if (out == nullptr) return CL_SUCCESS;
    if (size < valueSize) return CL_INVALID_VALUE;
    memcpy(out, value, valueSize);
    return CL_SUCCESS;
}

}  // namespace hostcl
