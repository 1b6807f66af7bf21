/*
 * The producing half of the camera pipeline: a camera image passed on through the library into
 * display Surfaces and into HardwareBuffers of every target format.
 */
#pragma once

#include <jni.h>

#include <string>

#include "CameraPipeline.h"

// Produces the flexible YUV camera `image` (width x height) into a Surface of each target format
// and into a HardwareBuffer of each, writing what arrived as PNG previews into outDir.
void demoPassOnCameraImage(JNIEnv* env, SurfaceNativeUtil* util, jobject image, int width,
                           int height, const std::string& outDir, const DemoStep& step);
