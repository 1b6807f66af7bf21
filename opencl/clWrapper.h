/*
 * The run-time OpenCL loader. The library does not link against OpenCL: the device's OpenCL
 * library lives in the vendor partition and is opened through the same-process HAL ("sphal")
 * namespace when a converter needs it. Every entry point is resolved into a process-wide pointer
 * of the same name in this namespace (wrapper::clCreateContext, ...), and every OpenCL call of the
 * library goes through these pointers.
 *
 * No lock guards the handle or the pointers: each converter loads in its constructor and unloads
 * in its destructor, and two converters alive at once on different threads share them as they are.
 */
#pragma once

#ifndef CL_TARGET_OPENCL_VERSION
#define CL_TARGET_OPENCL_VERSION 200
#endif
#define CL_USE_DEPRECATED_OPENCL_1_0_APIS
#define CL_USE_DEPRECATED_OPENCL_1_1_APIS
#define CL_USE_DEPRECATED_OPENCL_1_2_APIS
#define CL_USE_DEPRECATED_OPENCL_2_0_APIS
#include <CL/cl.h>
#include <CL/cl_ext.h>
#include <CL/cl_gl.h>

#define NUVRA_CL_EXPORT __attribute__((visibility("default")))

namespace wrapper {

// The opened OpenCL library; null while nothing is loaded.
extern void* libopencl;

// One pointer per entry point, of the entry point's own type; exported under these names.
#define X(name) extern NUVRA_CL_EXPORT decltype(&::name) name;
#include "clFunctions.def"
#undef X

// Opens "libOpenCL.so", else "libOpenCL_system.so" (each through the sphal namespace, then the
// default one) and resolves every entry point. Aborts the process when no library can be opened
// or an entry point is missing: there is no error return.
void loadOpenCl();

// Closes the library if one is open and clears the handle; the pointers are left as they are.
void unloadOpenCl();

}  // namespace wrapper
