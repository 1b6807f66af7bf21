/*
 * android.view.Surface as native code sees it: a Java handle on a native android::Surface.
 *
 * The native object is held through mNativeObject, a strong reference owned by this Java
 * object and dropped by release() (or by the finalizer when release() was never called). Native
 * code reads mNativeObject under mLock. A Surface whose mNativeObject is 0 has no native window:
 * released, or created empty.
 */
package android.view;

public class Surface {
    private static native void nativeRelease(long nativeObject);
    private static native boolean nativeIsValid(long nativeObject);

    // Protects mNativeObject; the native glue locks it too (MonitorEnter/MonitorExit).
    final Object mLock = new Object();
    // The android::Surface* this object holds a strong reference on, or 0.
    long mNativeObject;
    private String mName;
    // Incremented each time mNativeObject changes.
    private int mGenerationId;

    /** An empty Surface, without a native object: not valid until something is attached. */
    public Surface() {}

    // Called by the native glue (android_view_Surface_createFromSurface), which has already
    // taken the strong reference this object now owns.
    private Surface(long nativeObject) {
        synchronized (mLock) {
            setNativeObjectLocked(nativeObject);
        }
    }

    @Override
    @SuppressWarnings("deprecation")
    protected void finalize() throws Throwable {
        try {
            release();
        } finally {
            super.finalize();
        }
    }

    /** Drops the native Surface. The Java object stays, invalid. Calling it again does nothing. */
    public void release() {
        synchronized (mLock) {
            if (mNativeObject != 0) {
                nativeRelease(mNativeObject);
                setNativeObjectLocked(0);
            }
        }
    }

    /** Same as release(). */
    public void destroy() {
        release();
    }

    /** Whether there is a native Surface with a buffer queue behind this object. */
    public boolean isValid() {
        synchronized (mLock) {
            if (mNativeObject == 0) return false;
            return nativeIsValid(mNativeObject);
        }
    }

    /** Changes each time the native Surface behind this object changes. */
    public int getGenerationId() {
        synchronized (mLock) {
            return mGenerationId;
        }
    }

    @Override
    public String toString() {
        synchronized (mLock) {
            return "Surface(name=" + mName + ")/@0x"
                    + Integer.toHexString(System.identityHashCode(this));
        }
    }

    private void setNativeObjectLocked(long ptr) {
        if (mNativeObject != ptr) {
            mNativeObject = ptr;
            mGenerationId += 1;
        }
    }
}
