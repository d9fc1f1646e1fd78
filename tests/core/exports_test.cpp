// The export list against the declarations: each export's argument block on the 32-bit stack,
// computed from the declared parameter types, must equal the size the list records. A missing
// declaration fails to compile; a wrong size fails the static_assert.
#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

#include "velmora/imaging.h"

namespace {

template <class T>
struct Arg32;  // a by-value parameter type without a size here must be given one
template <class T>
struct Arg32<T*> : std::integral_constant<int, 4> {};
template <>
struct Arg32<int32_t> : std::integral_constant<int, 4> {};
template <>
struct Arg32<uint32_t> : std::integral_constant<int, 4> {};
template <>
struct Arg32<uint8_t> : std::integral_constant<int, 4> {};  // promoted to a whole slot
template <>
struct Arg32<float> : std::integral_constant<int, 4> {};
template <>
struct Arg32<bool> : std::integral_constant<int, 4> {};  // a bool takes a whole 32-bit stack slot
template <>
struct Arg32<double> : std::integral_constant<int, 8> {};
template <>
struct Arg32<ImageSize> : std::integral_constant<int, 8> {};
template <>
struct Arg32<ExposureParameter> : std::integral_constant<int, 20> {};

template <class R, class... Args>
constexpr int ArgBlock32(R(VELMORA_CALL*)(Args...)) {
    return (0 + ... + Arg32<std::remove_cv_t<Args>>::value);
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
