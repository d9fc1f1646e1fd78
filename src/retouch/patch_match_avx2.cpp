// The PatchMatch sweeps with the AVX2 patch distance: two patch rows a vector.
#include "retouch/patch_sweep.h"

namespace velmora::retouch {

void SweepsAvx2(const SweepArgs& args) { Sweeps<Avx2Patch>(args); }

}  // namespace velmora::retouch
