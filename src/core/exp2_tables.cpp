// Exp2_Init: fills the two process-wide tables declared in exp2_tables.h, afresh at every call.
#include "core/exp2_tables.h"

#include <atomic>
#include <cmath>

#include "core/frame.h"

float velmora_exp2_log2_table[velmora::exp2::kLog2Entries];
float velmora_exp2_pow2_table[velmora::exp2::kPow2Entries];

namespace velmora::exp2 {
namespace {

// Two hosts' threads may initialise at once; both write the same values, and relaxed atomic
// stores keep that overlap well defined without costing anything on x86.
void Put(float& entry, float value) { std::atomic_ref<float>(entry).store(value, std::memory_order_relaxed); }

}  // namespace
}  // namespace velmora::exp2

extern "C" VELMORA_API void VELMORA_CALL Exp2_Init(void) {
    using namespace velmora::exp2;
    // log2(1 + i/255) in double precision (1/255 as the double 0.00392156862745098), stored as float.
    for (int i = 0; i < kLog2Entries; ++i) Put(velmora_exp2_log2_table[i], static_cast<float>(std::log2(1.0 + i * 0.00392156862745098)));
    // The exponent is formed in single precision with the float nearest 1/255, then 2 is raised to
    // it in double precision: entries run from 2^(-256/255) at i = 0 to 2^(255/255) at i = 511.
    for (int i = 0; i < kPow2Entries; ++i) {
        const float exponent = static_cast<float>(i - 256) * 0.003921569f;
        Put(velmora_exp2_pow2_table[i], static_cast<float>(std::pow(2.0, static_cast<double>(exponent))));
    }
}
