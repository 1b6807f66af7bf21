// The scalar reference row of the flexible chroma gather: sample by sample, V then U.
#include "surface/kernels/GatherRowFunctions.h"

namespace nuvra::kernels::detail {

void GatherChromaRow_C(uint8_t* vu, const uint8_t* v, const uint8_t* u, ptrdiff_t vStep,
                       ptrdiff_t uStep, size_t pairs) {
    for (size_t k = 0; k < pairs; ++k) {
        const ptrdiff_t i = static_cast<ptrdiff_t>(k);
        vu[2 * k] = v[i * vStep];
        vu[2 * k + 1] = u[i * uStep];
    }
}

namespace {

void interleaveRow_C(uint8_t* vu, const uint8_t* v, const uint8_t* u, size_t pairs) {
    GatherChromaRow_C(vu, v, u, 1, 1, pairs);
}

}  // namespace

const GatherRowFunctions kGatherRows_C = {interleaveRow_C};

}  // namespace nuvra::kernels::detail
