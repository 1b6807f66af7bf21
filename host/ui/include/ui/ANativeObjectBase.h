/*
 * ANativeObjectBase joins a native C object (ANativeWindow, ANativeWindowBuffer) with a
 * reference-counted C++ class: the C object's incRef/decRef hooks forward to the C++ strong
 * count, so sp<> of either type keeps the one object alive.
 */
#pragma once

#include <nativebase/nativebase.h>
#include <sys/types.h>
#include <system/window.h>
#include <utils/RefBase.h>

namespace android {

/*
 * This helper class turns a native type into a C++ type with a RefBase base class and
 * reference counting between them.
 */
template <typename NATIVE_TYPE, typename TYPE, typename REF,
          typename NATIVE_BASE = android_native_base_t>
class ANativeObjectBase : public NATIVE_TYPE, public REF {
public:
    // Disambiguate between the incStrong in REF and NATIVE_TYPE
    void incStrong(const void* id) const { REF::incStrong(id); }
    void decStrong(const void* id) const { REF::decStrong(id); }

protected:
    typedef ANativeObjectBase<NATIVE_TYPE, TYPE, REF, NATIVE_BASE> BASE;
    ANativeObjectBase() : NATIVE_TYPE(), REF() {
        NATIVE_TYPE::common.incRef = incRef;
        NATIVE_TYPE::common.decRef = decRef;
    }
    static inline TYPE* getSelf(NATIVE_TYPE* self) { return static_cast<TYPE*>(self); }
    static inline TYPE const* getSelf(NATIVE_TYPE const* self) {
        return static_cast<TYPE const*>(self);
    }
    static inline TYPE* getSelf(NATIVE_BASE* base) {
        return getSelf(reinterpret_cast<NATIVE_TYPE*>(base));
    }
    static inline TYPE const* getSelf(NATIVE_BASE const* base) {
        return getSelf(reinterpret_cast<NATIVE_TYPE const*>(base));
    }
    static void incRef(NATIVE_BASE* base) {
        ANativeObjectBase* self = getSelf(base);
        self->incStrong(self);
    }
    static void decRef(NATIVE_BASE* base) {
        ANativeObjectBase* self = getSelf(base);
        self->decStrong(self);
    }
};

}  // namespace android
