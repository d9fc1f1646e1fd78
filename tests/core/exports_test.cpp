// The export list against the declarations: each export's argument block on the 32-bit stack,
// computed from the declared parameter types, must equal the size the list records. A missing
// declaration fails to compile; a wrong size fails the static_assert.
#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

#include "velmora/imaging.h"

namespace {

// A by-value parameter's bytes on the 32-bit stack: small integers, bools and floats take a whole
// slot; a type not named here must be given its size.
template <class T>
constexpr int Arg32() {
    if constexpr (std::is_pointer_v<T> || std::is_same_v<T, int32_t> || std::is_same_v<T, uint32_t> ||
                  std::is_same_v<T, uint8_t> || std::is_same_v<T, float> || std::is_same_v<T, bool>)
        return 4;
    else if constexpr (std::is_same_v<T, double> || std::is_same_v<T, ImageSize>) return 8;
    else if constexpr (std::is_same_v<T, ExposureParameter>) return 20;
    else static_assert(sizeof(T) == 0, "a parameter type without a stack size");
}

template <class R, class... Args>
constexpr int ArgBlock32(R(VELMORA_CALL*)(Args...)) {
    return (0 + ... + Arg32<std::remove_cv_t<Args>>());
}

#define VELMORA_EXPORT(name, bytes) \
    static_assert(ArgBlock32(&name) == (bytes), #name ": argument block differs from the export list");
#include "core/exports.inc"
#undef VELMORA_EXPORT

#define VELMORA_EXPORT(name, bytes) +1
constexpr int kExportCount = 0
#include "core/exports.inc"
    ;
#undef VELMORA_EXPORT

TEST(ExportList, NamesAreUniqueAndCounted) {
    const char* names[] = {
#define VELMORA_EXPORT(name, bytes) #name,
#include "core/exports.inc"
#undef VELMORA_EXPORT
    };
    ASSERT_EQ(static_cast<int>(std::size(names)), kExportCount);
    for (int i = 0; i < kExportCount; ++i)
        for (int j = i + 1; j < kExportCount; ++j) EXPECT_STRNE(names[i], names[j]);
}

}  // namespace
