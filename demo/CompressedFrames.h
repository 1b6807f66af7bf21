/*
 * The GPU part of the camera pipeline: a compressed NV12 camera frame decompressed through the
 * library into NV21.
 */
#pragma once

#include <hostcamera/CameraFrames.h>
#include <jni.h>

#include <string>

#include "CameraPipeline.h"

void demoCompressedFrames(JNIEnv* env, SurfaceNativeUtil* util, const host::RgbPicture& picture,
                          const std::string& outDir, const DemoStep& step);
