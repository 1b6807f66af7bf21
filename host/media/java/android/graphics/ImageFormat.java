/*
 * android.graphics.ImageFormat: the public image format numbers an ImageReader is created
 * with, and how they map to the buffer formats and data spaces of the native side.
 */
package android.graphics;

public class ImageFormat {
    public static final int UNKNOWN = 0;
    public static final int RGB_565 = 4;
    public static final int YV12 = 0x32315659;
    public static final int Y8 = 0x20203859;
    public static final int YCBCR_P010 = 0x36;
    public static final int NV16 = 0x10;
    public static final int NV21 = 0x11;
    public static final int YUY2 = 0x14;
    public static final int JPEG = 0x100;
    public static final int DEPTH_JPEG = 0x69656963;
    public static final int YUV_420_888 = 0x23;
    public static final int YUV_422_888 = 0x27;
    public static final int YUV_444_888 = 0x28;
    public static final int FLEX_RGB_888 = 0x29;
    public static final int FLEX_RGBA_8888 = 0x2A;
    public static final int RAW_SENSOR = 0x20;
    public static final int RAW_PRIVATE = 0x24;
    public static final int RAW10 = 0x25;
    public static final int RAW12 = 0x26;
    public static final int DEPTH16 = 0x44363159;
    public static final int DEPTH_POINT_CLOUD = 0x101;
    public static final int RAW_DEPTH = 0x1002;
    public static final int PRIVATE = 0x22;
    public static final int HEIC = 0x48454946;

    // Buffer formats and data spaces of the native side (HAL_PIXEL_FORMAT_*, HAL_DATASPACE_*).
    private static final int HAL_PIXEL_FORMAT_RAW16 = 0x20;
    private static final int HAL_PIXEL_FORMAT_BLOB = 0x21;
    private static final int HAL_PIXEL_FORMAT_Y16 = 0x20363159;
    private static final int HAL_DATASPACE_UNKNOWN = 0;
    private static final int HAL_DATASPACE_V0_JFIF = 0x8C20000;
    private static final int HAL_DATASPACE_DEPTH = 0x1000;
    private static final int HAL_DATASPACE_DYNAMIC_DEPTH = 0x1002;
    private static final int HAL_DATASPACE_HEIF = 0x1004;
    private static final int HAL_DATASPACE_BT2020_HLG = 0xA060000;

    /** The buffer format a reader of this public format asks its producer for. */
    public static int getHalFormat(int format) {
        switch (format) {
            case JPEG:
            case DEPTH_POINT_CLOUD:
            case DEPTH_JPEG:
            case HEIC:
                return HAL_PIXEL_FORMAT_BLOB;
            case DEPTH16:
                return HAL_PIXEL_FORMAT_Y16;
            case RAW_SENSOR:
            case RAW_DEPTH:
                return HAL_PIXEL_FORMAT_RAW16;
            default:
                return format;
        }
    }

    /** The data space a reader of this public format gives its buffers by default. */
    public static int getHalDataspace(int format) {
        switch (format) {
            case JPEG:
                return HAL_DATASPACE_V0_JFIF;
            case DEPTH_POINT_CLOUD:
            case DEPTH16:
            case RAW_DEPTH:
                return HAL_DATASPACE_DEPTH;
            case DEPTH_JPEG:
                return HAL_DATASPACE_DYNAMIC_DEPTH;
            case HEIC:
                return HAL_DATASPACE_HEIF;
            case YCBCR_P010:
                return HAL_DATASPACE_BT2020_HLG;
            default:
                return HAL_DATASPACE_UNKNOWN;
        }
    }
}
