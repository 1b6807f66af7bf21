/*
 * android.media.Image: one frame acquired from an ImageReader. The host's images give their
 * format, size, timestamp, data space and hardware buffer; they have no planes (getPlanes()
 * throws UnsupportedOperationException).
 */
package android.media;

import android.hardware.HardwareBuffer;

public abstract class Image implements AutoCloseable {
    protected boolean mIsImageValid = false;

    protected Image() {}

    protected void throwISEIfImageIsInvalid() {
        if (!mIsImageValid) {
            throw new IllegalStateException("Image is already closed");
        }
    }

    public abstract int getFormat();

    public abstract int getWidth();

    public abstract int getHeight();

    public abstract long getTimestamp();

    public abstract int getDataSpace();

    public abstract HardwareBuffer getHardwareBuffer();

    /** Not on the host: the library reads the buffers natively. */
    public Object[] getPlanes() {
        throw new UnsupportedOperationException("Image planes are not available on the host");
    }

    /** Returns the image's buffer to its reader. Closing it again does nothing. */
    @Override
    public abstract void close();
}
