/*
 * The camera pipeline of the demo: camera frames of every camera format read back through the
 * library.
 */
#pragma once

#include <jni.h>

#include <functional>
#include <string>

#include "DemoImages.h"
#include "surface/SurfaceNativeUtil.h"

// Runs one library call and prints its result, time, log lines and pending Java exception.
using DemoStep = std::function<void(const char* what, const std::function<long long()>& call)>;

// Queues `picture` from the host camera into an ImageReader of each camera format and reads
// every image back through the library, writing previews (and the JPEG) into outDir.
void demoCameraPipeline(JNIEnv* env, SurfaceNativeUtil* util, const RgbaImage& picture,
                        const std::string& outDir, const DemoStep& step);
