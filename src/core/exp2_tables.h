// The two process-wide tables that Exp2_Init fills. No kernel reads them; the export exists for
// hosts that call it during start-up, and its effect is kept. The tables have C linkage so their
// names are plain, but they stay hidden: the library's export list names only kernels.
#pragma once

namespace velmora::exp2 {

inline constexpr int kLog2Entries = 256;  // log2(1 + i/255), i = 0..255
inline constexpr int kPow2Entries = 512;  // 2^((i - 256)/255), i = 0..511

}  // namespace velmora::exp2

extern "C" {
extern float velmora_exp2_log2_table[velmora::exp2::kLog2Entries];
extern float velmora_exp2_pow2_table[velmora::exp2::kPow2Entries];
}
