/*
 * The graphics types of libui's public interfaces, under android::ui. On the host only the
 * stable AIDL types that libui's interfaces use are here.
 */
#pragma once

#include <aidl/android/hardware/graphics/common/PlaneLayout.h>

namespace android::ui {

// Stable AIDL types
using aidl::android::hardware::graphics::common::PlaneLayout;

}  // namespace android::ui
