/*
 * android.hardware.HardwareBuffer: a Java handle on a native graphics buffer (an
 * AHardwareBuffer, which is an android::GraphicBuffer).
 *
 * mNativeObject holds the native wrapper that owns one strong reference on the buffer; close()
 * sets it to 0 and drops the reference at once; a buffer never closed drops it when collected
 * (a Cleaner plays the part of the platform's NativeAllocationRegistry).
 */
package android.hardware;

import java.lang.ref.Cleaner;

public final class HardwareBuffer implements AutoCloseable {
    public static final int RGBA_8888 = 1;
    public static final int RGBX_8888 = 2;
    public static final int RGB_888 = 3;
    public static final int RGB_565 = 4;
    public static final int RGBA_FP16 = 0x16;
    public static final int RGBA_1010102 = 0x2b;
    public static final int BLOB = 0x21;
    public static final int YCBCR_420_888 = 0x23;
    public static final int YCBCR_P010 = 0x36;

    public static final long USAGE_CPU_READ_RARELY = 2;
    public static final long USAGE_CPU_READ_OFTEN = 3;
    public static final long USAGE_CPU_WRITE_RARELY = 2 << 4;
    public static final long USAGE_CPU_WRITE_OFTEN = 3 << 4;
    public static final long USAGE_GPU_SAMPLED_IMAGE = 1 << 8;
    public static final long USAGE_GPU_COLOR_OUTPUT = 1 << 9;
    public static final long USAGE_PROTECTED_CONTENT = 1 << 14;
    public static final long USAGE_VIDEO_ENCODE = 1 << 16;
    public static final long USAGE_SENSOR_DIRECT_DATA = 1 << 23;
    public static final long USAGE_GPU_DATA_BUFFER = 1 << 24;

    private static final Cleaner sCleaner = Cleaner.create();

    // The native GraphicBufferWrapper*, or 0 once closed. Read by native code.
    private long mNativeObject;
    private Cleaner.Cleanable mCleaner;

    // Drops the native reference; holds only the pointer, never the Java object.
    private static final class Release implements Runnable {
        private final long mNativeObject;

        Release(long nativeObject) {
            mNativeObject = nativeObject;
        }

        @Override
        public void run() {
            nDestroy(mNativeObject);
        }
    }

    /**
     * A new buffer. Throws IllegalArgumentException for a non-positive size or layer count, a
     * BLOB buffer taller than 1, or a buffer the allocator refuses.
     */
    public static HardwareBuffer create(int width, int height, int format, int layers,
            long usage) {
        if (width <= 0) {
            throw new IllegalArgumentException("Invalid width " + width);
        }
        if (height <= 0) {
            throw new IllegalArgumentException("Invalid height " + height);
        }
        if (layers <= 0) {
            throw new IllegalArgumentException("Invalid layer count " + layers);
        }
        if (format == BLOB && height != 1) {
            throw new IllegalArgumentException("Height must be 1 when using the BLOB format");
        }
        long nativeObject = nCreateHardwareBuffer(width, height, format, layers, usage);
        if (nativeObject == 0) {
            throw new IllegalArgumentException("Unable to create a HardwareBuffer of size "
                    + width + "x" + height + " in format " + format + " with layers " + layers
                    + " and usage " + usage);
        }
        return new HardwareBuffer(nativeObject);
    }

    // Also called by the native glue (createFromAHardwareBuffer), which has already taken the
    // reference this object now owns.
    private HardwareBuffer(long nativeObject) {
        mNativeObject = nativeObject;
        mCleaner = sCleaner.register(this, new Release(nativeObject));
    }

    public int getWidth() {
        checkClosed("width");
        return nGetWidth(mNativeObject);
    }

    public int getHeight() {
        checkClosed("height");
        return nGetHeight(mNativeObject);
    }

    public int getFormat() {
        checkClosed("format");
        return nGetFormat(mNativeObject);
    }

    public int getLayers() {
        checkClosed("layer count");
        return nGetLayers(mNativeObject);
    }

    public long getUsage() {
        checkClosed("usage");
        return nGetUsage(mNativeObject);
    }

    public long getId() {
        checkClosed("id");
        return nGetId(mNativeObject);
    }

    private void checkClosed(String name) {
        if (isClosed()) {
            throw new IllegalStateException("This HardwareBuffer has been closed and its "
                    + name + " cannot be obtained.");
        }
    }

    /** Drops the native buffer now. Calling it again does nothing. */
    @Override
    public void close() {
        if (!isClosed()) {
            mNativeObject = 0;
            mCleaner.clean();
            mCleaner = null;
        }
    }

    public boolean isClosed() {
        return mNativeObject == 0;
    }

    private static native long nCreateHardwareBuffer(int width, int height, int format,
            int layers, long usage);
    private static native void nDestroy(long nativeObject);
    private static native int nGetWidth(long nativeObject);
    private static native int nGetHeight(long nativeObject);
    private static native int nGetFormat(long nativeObject);
    private static native int nGetLayers(long nativeObject);
    private static native long nGetUsage(long nativeObject);
    private static native long nGetId(long nativeObject);
}
