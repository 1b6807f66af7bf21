/*
 * android.media.ImageReader: a buffer queue consumer that hands the frames queued to its Surface
 * out as Images.
 *
 * The native side (libmedia_jni) keeps a BufferItemConsumer and a pool of maxImages BufferItems;
 * an acquired image holds the address of its BufferItem in mNativeBuffer until it is closed.
 * Acquiring a further image while maxImages are open throws IllegalStateException.
 */
package android.media;

import android.graphics.ImageFormat;
import android.hardware.HardwareBuffer;
import android.view.Surface;
import java.lang.ref.WeakReference;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.Executor;

public class ImageReader implements AutoCloseable {
    private static final int ACQUIRE_SUCCESS = 0;
    private static final int ACQUIRE_NO_BUFS = 1;
    private static final int ACQUIRE_MAX_IMAGES = 2;

    /** Called when a new image is available in the reader. */
    public interface OnImageAvailableListener {
        void onImageAvailable(ImageReader reader);
    }

    public static ImageReader newInstance(int width, int height, int format, int maxImages) {
        // A private reader gets no CPU usage: its buffers are not for the CPU.
        return new ImageReader(width, height, format, maxImages,
                format == ImageFormat.PRIVATE ? 0 : HardwareBuffer.USAGE_CPU_READ_OFTEN);
    }

    public static ImageReader newInstance(int width, int height, int format, int maxImages,
            long usage) {
        return new ImageReader(width, height, format, maxImages, usage);
    }

    protected ImageReader(int width, int height, int format, int maxImages, long usage) {
        mWidth = width;
        mHeight = height;
        mFormat = format;
        mUsage = usage;
        mMaxImages = maxImages;

        if (width < 1 || height < 1) {
            throw new IllegalArgumentException("The image dimensions must be positive");
        }
        if (mMaxImages < 1) {
            throw new IllegalArgumentException(
                    "Maximum outstanding image count must be at least 1");
        }
        if (format == ImageFormat.NV21) {
            throw new IllegalArgumentException("NV21 format is not supported");
        }

        synchronized (mCloseLock) {
            nativeInit(new WeakReference<>(this), width, height, maxImages, usage,
                    ImageFormat.getHalFormat(format), ImageFormat.getHalDataspace(format));
            mSurface = nativeGetSurface();
            mIsReaderValid = true;
        }
    }

    public int getWidth() {
        return mWidth;
    }

    public int getHeight() {
        return mHeight;
    }

    public int getImageFormat() {
        return mFormat;
    }

    public int getMaxImages() {
        return mMaxImages;
    }

    public long getUsage() {
        return mUsage;
    }

    /** The Surface that producers queue this reader's frames to. */
    public Surface getSurface() {
        return mSurface;
    }

    /**
     * The newest queued frame, closing the older ones on the way; null when none is queued.
     */
    public Image acquireLatestImage() {
        Image image = acquireNextImage();
        if (image == null) {
            return null;
        }
        try {
            for (;;) {
                Image next = acquireNextImageNoThrowISE();
                if (next == null) {
                    Image result = image;
                    image = null;
                    return result;
                }
                image.close();
                image = next;
            }
        } finally {
            if (image != null) {
                image.close();
            }
        }
    }

    public Image acquireNextImageNoThrowISE() {
        SurfaceImage si = new SurfaceImage(mFormat);
        return acquireNextSurfaceImage(si) == ACQUIRE_SUCCESS ? si : null;
    }

    private int acquireNextSurfaceImage(SurfaceImage si) {
        synchronized (mCloseLock) {
            int status = ACQUIRE_NO_BUFS;
            if (mIsReaderValid) {
                status = nativeImageSetup(si);
            }
            switch (status) {
                case ACQUIRE_SUCCESS:
                    si.mIsImageValid = true;
                    mAcquiredImages.add(si);
                    break;
                case ACQUIRE_NO_BUFS:
                case ACQUIRE_MAX_IMAGES:
                    break;
                default:
                    throw new AssertionError("Unknown nativeImageSetup return code " + status);
            }
            return status;
        }
    }

    /**
     * The next queued frame, or null when none is queued. Throws IllegalStateException when
     * maxImages images are already open.
     */
    public Image acquireNextImage() {
        SurfaceImage si = new SurfaceImage(mFormat);
        int status = acquireNextSurfaceImage(si);
        switch (status) {
            case ACQUIRE_SUCCESS:
                return si;
            case ACQUIRE_NO_BUFS:
                return null;
            case ACQUIRE_MAX_IMAGES:
                throw new IllegalStateException(String.format(
                        "maxImages (%d) has already been acquired, "
                                + "call #close before acquiring more.",
                        mMaxImages));
            default:
                throw new AssertionError("Unknown nativeImageSetup return code " + status);
        }
    }

    private void releaseImage(Image i) {
        if (!(i instanceof SurfaceImage)) {
            throw new IllegalArgumentException("This image was not produced by an ImageReader");
        }
        SurfaceImage si = (SurfaceImage) i;
        if (!si.mIsImageValid) {
            return;
        }
        if (si.getReader() != this || !mAcquiredImages.contains(i)) {
            throw new IllegalArgumentException("This image was not produced by this ImageReader");
        }
        nativeReleaseImage(i);
        si.mIsImageValid = false;
        mAcquiredImages.remove(i);
    }

    /** Runs `listener` on `executor` each time a frame is queued; null stops it. */
    public void setOnImageAvailableListenerWithExecutor(OnImageAvailableListener listener,
            Executor executor) {
        synchronized (mListenerLock) {
            mListener = listener;
            mListenerExecutor = listener == null ? null : executor;
        }
    }

    /** Closes every open image, releases the Surface and abandons the queue. */
    @Override
    public void close() {
        setOnImageAvailableListenerWithExecutor(null, null);
        if (mSurface != null) {
            mSurface.release();
        }
        synchronized (mCloseLock) {
            mIsReaderValid = false;
            for (Image image : mAcquiredImages) {
                image.close();
            }
            mAcquiredImages.clear();
            nativeClose();
        }
    }

    // Called by the native side on the thread that queued the frame.
    private static void postEventFromNative(Object selfRef) {
        @SuppressWarnings("unchecked")
        WeakReference<ImageReader> weakSelf = (WeakReference<ImageReader>) selfRef;
        final ImageReader ir = weakSelf.get();
        if (ir == null) {
            return;
        }
        final Executor executor;
        final OnImageAvailableListener listener;
        synchronized (ir.mListenerLock) {
            executor = ir.mListenerExecutor;
            listener = ir.mListener;
        }
        final boolean isReaderValid;
        synchronized (ir.mCloseLock) {
            isReaderValid = ir.mIsReaderValid;
        }
        if (executor != null && listener != null && isReaderValid) {
            executor.execute(() -> listener.onImageAvailable(ir));
        }
    }

    private final int mWidth;
    private final int mHeight;
    private final int mFormat;
    private final long mUsage;
    private final int mMaxImages;
    private final Object mListenerLock = new Object();
    private final Object mCloseLock = new Object();
    private boolean mIsReaderValid = false;
    private OnImageAvailableListener mListener;
    private Executor mListenerExecutor;
    private final Surface mSurface;
    private final List<Image> mAcquiredImages = new CopyOnWriteArrayList<>();

    // The native JNIImageReaderContext*. Used by native code, do not access or modify.
    private long mNativeContext;

    private class SurfaceImage extends android.media.Image {
        private final Object mCloseLock = new Object();

        SurfaceImage(int format) {
            mFormat = format;
        }

        @Override
        public void close() {
            synchronized (this.mCloseLock) {
                ImageReader.this.releaseImage(this);
            }
        }

        public ImageReader getReader() {
            return ImageReader.this;
        }

        @Override
        public int getFormat() {
            throwISEIfImageIsInvalid();
            int readerFormat = ImageReader.this.getImageFormat();
            // A private reader always gives private images.
            mFormat = (readerFormat == ImageFormat.PRIVATE) ? readerFormat
                    : nativeGetFormat(readerFormat);
            return mFormat;
        }

        @Override
        public int getWidth() {
            throwISEIfImageIsInvalid();
            switch (getFormat()) {
                case ImageFormat.JPEG:
                case ImageFormat.DEPTH_POINT_CLOUD:
                case ImageFormat.RAW_PRIVATE:
                case ImageFormat.DEPTH_JPEG:
                case ImageFormat.HEIC:
                    return ImageReader.this.getWidth();
                default:
                    return nativeGetWidth();
            }
        }

        @Override
        public int getHeight() {
            throwISEIfImageIsInvalid();
            switch (getFormat()) {
                case ImageFormat.JPEG:
                case ImageFormat.DEPTH_POINT_CLOUD:
                case ImageFormat.RAW_PRIVATE:
                case ImageFormat.DEPTH_JPEG:
                case ImageFormat.HEIC:
                    return ImageReader.this.getHeight();
                default:
                    return nativeGetHeight();
            }
        }

        @Override
        public long getTimestamp() {
            throwISEIfImageIsInvalid();
            return mTimestamp;
        }

        @Override
        public int getDataSpace() {
            throwISEIfImageIsInvalid();
            return mDataSpace;
        }

        @Override
        public HardwareBuffer getHardwareBuffer() {
            throwISEIfImageIsInvalid();
            return nativeGetHardwareBuffer();
        }

        // The acquired BufferItem*, 0 once closed. Used by native code, do not access or
        // modify.
        private long mNativeBuffer;
        // Set by native code with the buffer's values when the image is acquired.
        private long mTimestamp;
        private int mTransform;
        private int mScalingMode;
        private int mDataSpace;
        private int mFormat = 0;

        private synchronized native int nativeGetWidth();
        private synchronized native int nativeGetHeight();
        private synchronized native int nativeGetFormat(int readerFormat);
        private synchronized native HardwareBuffer nativeGetHardwareBuffer();
    }

    private synchronized native void nativeInit(Object weakSelf, int w, int h, int maxImgs,
            long consumerUsage, int halFormat, int dataSpace);
    private synchronized native void nativeClose();
    private synchronized native void nativeReleaseImage(Image i);
    private synchronized native Surface nativeGetSurface();
    private synchronized native int nativeImageSetup(Image i);

    private static native void nativeClassInit();

    static {
        System.loadLibrary("media_jni");
        nativeClassInit();
    }
}
