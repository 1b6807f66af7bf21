// JPEG encoding and decoding of RGB pictures with libjpeg-turbo.

#include <hostcamera/CameraFrames.h>
#include <jpeglib.h>
#include <setjmp.h>

#include <cstdio>
#include <cstdlib>

namespace host {
namespace {

// libjpeg reports fatal errors through error_exit, which must not return: jump back out.
struct ErrorManager {
    jpeg_error_mgr pub;
    jmp_buf escape;
};

void onError(j_common_ptr info) {
    longjmp(reinterpret_cast<ErrorManager*>(info->err)->escape, 1);
}

void silence(j_common_ptr /*info*/, int /*level*/) {}

}  // namespace

std::vector<uint8_t> encodeJpeg(const RgbPicture& picture, int quality) {
    if (picture.width == 0 || picture.height == 0) return {};
    jpeg_compress_struct info{};
    ErrorManager errors{};
    info.err = jpeg_std_error(&errors.pub);
    errors.pub.error_exit = onError;
    unsigned char* out = nullptr;
    unsigned long outSize = 0;
    std::vector<uint8_t> jpeg;
    if (setjmp(errors.escape) == 0) {
        jpeg_create_compress(&info);
        jpeg_mem_dest(&info, &out, &outSize);
        info.image_width = picture.width;
        info.image_height = picture.height;
        info.input_components = 3;
        info.in_color_space = JCS_RGB;
        jpeg_set_defaults(&info);
        jpeg_set_quality(&info, quality, TRUE);
        jpeg_start_compress(&info, TRUE);
        while (info.next_scanline < info.image_height) {
            JSAMPROW row = const_cast<JSAMPROW>(picture.pixel(0, info.next_scanline));
            jpeg_write_scanlines(&info, &row, 1);
        }
        jpeg_finish_compress(&info);
        jpeg.assign(out, out + outSize);
    }
    jpeg_destroy_compress(&info);
    free(out);
    return jpeg;
}

RgbPicture decodeJpeg(const uint8_t* data, size_t size) {
    jpeg_decompress_struct info{};
    ErrorManager errors{};
    info.err = jpeg_std_error(&errors.pub);
    errors.pub.error_exit = onError;
    errors.pub.emit_message = silence;
    RgbPicture picture;
    if (setjmp(errors.escape) == 0) {
        jpeg_create_decompress(&info);
        jpeg_mem_src(&info, data, static_cast<unsigned long>(size));
        if (jpeg_read_header(&info, TRUE) == JPEG_HEADER_OK) {
            info.out_color_space = JCS_RGB;
            jpeg_start_decompress(&info);
            picture.width = info.output_width;
            picture.height = info.output_height;
            picture.rgb.resize(size_t{picture.width} * picture.height * 3);
            while (info.output_scanline < info.output_height) {
                JSAMPROW row = &picture.rgb[size_t{info.output_scanline} * picture.width * 3];
                jpeg_read_scanlines(&info, &row, 1);
            }
            jpeg_finish_decompress(&info);
        }
    } else {
        picture = RgbPicture();
    }
    jpeg_destroy_decompress(&info);
    return picture;
}

}  // namespace host
