// The GL-sharing entry points of a driver without GL sharing: no context of this driver is
// created from a GL context, so no GL object can be shared or queried.

#include "Driver.h"

namespace {

cl_mem refuse(cl_int* errcode_ret) {
    if (errcode_ret != nullptr) *errcode_ret = CL_INVALID_CONTEXT;
    return nullptr;
}

}  // namespace

HOSTCL_EXPORT cl_mem CL_API_CALL clCreateFromGLBuffer(cl_context, cl_mem_flags, cl_GLuint,
                                                      cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateFromGLBuffer", errcode_ret);
    return refuse(errcode_ret);
}

HOSTCL_EXPORT cl_mem CL_API_CALL clCreateFromGLTexture(cl_context, cl_mem_flags, cl_GLenum,
                                                       cl_GLint, cl_GLuint, cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateFromGLTexture", errcode_ret);
    return refuse(errcode_ret);
}

HOSTCL_EXPORT cl_mem CL_API_CALL clCreateFromGLRenderbuffer(cl_context, cl_mem_flags, cl_GLuint,
                                                            cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateFromGLRenderbuffer", errcode_ret);
    return refuse(errcode_ret);
}

HOSTCL_EXPORT cl_mem CL_API_CALL clCreateFromGLTexture2D(cl_context, cl_mem_flags, cl_GLenum,
                                                         cl_GLint, cl_GLuint, cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateFromGLTexture2D", errcode_ret);
    return refuse(errcode_ret);
}

HOSTCL_EXPORT cl_mem CL_API_CALL clCreateFromGLTexture3D(cl_context, cl_mem_flags, cl_GLenum,
                                                         cl_GLint, cl_GLuint, cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateFromGLTexture3D", errcode_ret);
    return refuse(errcode_ret);
}

HOSTCL_EXPORT cl_int CL_API_CALL clGetGLObjectInfo(cl_mem, cl_gl_object_type*, cl_GLuint*) {
    HOSTCL_CHECK_STATUS("clGetGLObjectInfo");
    return CL_INVALID_GL_OBJECT;
}

HOSTCL_EXPORT cl_int CL_API_CALL clGetGLTextureInfo(cl_mem, cl_gl_texture_info, size_t, void*,
                                                    size_t*) {
    HOSTCL_CHECK_STATUS("clGetGLTextureInfo");
    return CL_INVALID_GL_OBJECT;
}

HOSTCL_EXPORT cl_int CL_API_CALL clEnqueueAcquireGLObjects(cl_command_queue, cl_uint, const cl_mem*,
                                                           cl_uint, const cl_event*, cl_event*) {
    HOSTCL_CHECK_STATUS("clEnqueueAcquireGLObjects");
    return CL_INVALID_CONTEXT;
}

HOSTCL_EXPORT cl_int CL_API_CALL clEnqueueReleaseGLObjects(cl_command_queue, cl_uint, const cl_mem*,
                                                           cl_uint, const cl_event*, cl_event*) {
    HOSTCL_CHECK_STATUS("clEnqueueReleaseGLObjects");
    return CL_INVALID_CONTEXT;
}

HOSTCL_EXPORT cl_int CL_API_CALL clGetGLContextInfoKHR(const cl_context_properties*,
                                                       cl_gl_context_info, size_t, void*, size_t*) {
    HOSTCL_CHECK_STATUS("clGetGLContextInfoKHR");
    return CL_INVALID_OPERATION;
}

HOSTCL_EXPORT cl_event CL_API_CALL clCreateEventFromGLsyncKHR(cl_context, cl_GLsync,
                                                              cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateEventFromGLsyncKHR", errcode_ret);
    if (errcode_ret != nullptr) *errcode_ret = CL_INVALID_CONTEXT;
    return nullptr;
}
