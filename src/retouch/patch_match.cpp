// PatchMatch minimisation over a nearest-neighbour field of 4 x 4 patches, and the field
// "randomiser" the host calls before it. One call of the minimiser is a forward and a backward
// sweep (patch_sweep.h), with the AVX2 patch distance where the processor has it.
#include <cstddef>
#include <cstdint>

#include "core/cpu.h"
#include "core/frame.h"
#include "core/thread_rand.h"
#include "retouch/patch_sweep.h"

extern "C" {

VELMORA_API void VELMORA_CALL ImageMinimize_Bgra32(const uint8_t* target, int32_t targetStep, const uint8_t* source,
                                                   int32_t sourceStep, NNFEntry* nnf, int32_t nnfStep,
                                                   const ImageSize* size, int32_t patchSize) {
    using velmora::frame::Row;
    const int32_t o = (patchSize - 1) / 2;
    const velmora::retouch::SweepArgs args{
        Row(target, targetStep, -o) - ptrdiff_t{o} * 4,
        targetStep,
        Row(source, sourceStep, -o) - ptrdiff_t{o} * 4,
        sourceStep,
        patchSize == 4 ? ptrdiff_t{targetStep} : ptrdiff_t{targetStep / 4 - patchSize} * 4,
        nnf,
        nnfStep,
        size->width,
        size->height};
    if (velmora::cpu::Has(velmora::cpu::Level::Avx2))
        velmora::retouch::SweepsAvx2(args);
    else
        velmora::retouch::Sweeps<velmora::retouch::Sse2Patch>(args);
}

VELMORA_API int32_t VELMORA_CALL ImageNNFRandomize_Bgra32_SSE2(const uint8_t*, int32_t, const uint8_t*, int32_t,
                                                                NNFEntry*, int32_t, int32_t, int32_t,
                                                                const ImageSize* size, int32_t) {
    int32_t rows = 0;
    for (; rows < size->height; ++rows)
        for (int32_t x = 0; x < size->width; ++x) {
            velmora::ThreadRand();
            velmora::ThreadRand();
        }
    return rows;
}

}  // extern "C"
