// The scalar reference row of the high-byte extraction.
#include "surface/kernels/HighByteRowFunctions.h"

namespace nuvra::kernels::detail {

void HighBytesRow_C(uint8_t* dst, const uint8_t* samples, size_t count) {
    for (size_t j = 0; j < count; ++j) dst[j] = samples[2 * j + 1];
}

}  // namespace nuvra::kernels::detail
