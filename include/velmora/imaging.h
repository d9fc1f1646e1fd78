/*
 * Velmora.Imaging.SSE: SIMD image kernels for the Velmora photo editor.
 *
 * Every export is a stateless call on the caller's thread (two kernels fork an
 * OpenMP team and join before returning). The caller owns every pixel plane.
 *
 * Conventions shared by all exports:
 *  - A plane is a pointer to the first byte of row 0 and a signed 32-bit step:
 *    the distance in BYTES from one row's start to the next. Rows are walked by
 *    adding the step; pixels inside a row are packed.
 *  - Argument order: source, source step, destination, destination step, region,
 *    parameters. In-place kernels take one pointer and one step.
 *  - The region is never validated: a width or height of 0 or less processes
 *    nothing. Own-style kernels take it as `const ImageSize*`; matrix-style
 *    kernels (Curve_16u_C1R, Swizzle_8u_C4R, ...) take separate int32 values.
 *  - Validating kernels return StatusInvalidParameter (87) and touch nothing
 *    when, in this order: a step is 0, a pointer is null, a pointer is not
 *    16-byte aligned, a step is not a multiple of 16. Others trust the caller.
 *  - Vector loops may run up to one block past the region's width (named per
 *    export below as "overrun"). Rows allocated with a pitch that is a multiple
 *    of 16 bytes, rounded up to the block, always have room. Overrun pixels are
 *    REWRITTEN: the destination pixels past the width in the same row receive
 *    processed values (computed from the source pixels there, which are read),
 *    so a host working on a tile of a larger image must pad its rows or keep a
 *    copy of the pixels right of the tile. "Exactly the region" means no overrun.
 *  - Every export's line (or its family's block) states its contract: which
 *    pointers must be 16-byte aligned ("any alignment" otherwise), whether the
 *    result can be anything but StatusOk, and its overrun.
 *  - Float working data is nominally [0, 1]. Float-to-integer conversions clamp
 *    to [0, 1] (NaN becomes 0), scale by 255 or 65535 and round half to even;
 *    integer-to-float multiplies by the float nearest 1/255 or 1/65535.
 */
#ifndef VELMORA_IMAGING_H
#define VELMORA_IMAGING_H

#include <stdbool.h>
#include <stdint.h>
#include <xmmintrin.h> /* __m128: the patch distances return a four-float vector in a register */

#if defined(_WIN32) && !defined(_WIN64)
#define VELMORA_CALL __stdcall
#else
#define VELMORA_CALL
#endif

#if defined(_WIN32)
#if defined(VELMORA_BUILDING_LIBRARY) || defined(VELMORA_STATIC)
/* The module-definition file exports each name undecorated, and nothing else; VELMORA_STATIC is
   for programs linked with the library's objects instead of the DLL. */
#define VELMORA_API
#else
#define VELMORA_API __declspec(dllimport)
#endif
#else
#define VELMORA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Region of interest: width in pixels, then height in rows. */
typedef struct ImageSize {
    int32_t width;
    int32_t height;
} ImageSize;

/* Rectangle in pixels, laid out as the Win32 RECT: left, top, right, bottom (four int32). */
typedef struct ImageRect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} ImageRect;

/* Result of the validating kernels. */
typedef uint32_t StatusCode;
#define StatusOk ((StatusCode)0)
#define StatusInvalidParameter ((StatusCode)87)

/* ---- Call frame: processor queries and plane fill ---------------------- */

/* CPUID leaf 1 EDX bit 1 (deliberately that bit, not the SSE flag); false if leaf 1 is absent. */
VELMORA_API bool VELMORA_CALL VerifySSESupport(void);
/* CPUID leaf 1 EDX bit 2 (deliberately that bit, not the SSE2 flag); false if leaf 1 is absent. */
VELMORA_API bool VELMORA_CALL VerifySSE2Support(void);
/* CPUID leaf 1 ECX bit 19 (SSE4.1); false if leaf 1 is absent. */
VELMORA_API bool VELMORA_CALL VerifySSE4Support(void);
/* Fills a Gray32F region with value: row 0 up to the next multiple of 4 floats, then copies
   |step| bytes of row 0 into every further row (overrun: whole rows, padding included, are
   rewritten). Returns the rows filled (height), or 1 when height < 2. No checks; any alignment. */
VELMORA_API int32_t VELMORA_CALL ImageClear_Gray32F_SSE2_V2(float* data, int32_t step, const ImageSize* roi,
                                                            float value);
/* Fills two process-wide float tables, log2(1 + i/255) (256 entries) and 2^((i - 256)/255)
   (512 entries), afresh at every call. No kernel reads them; kept for hosts that call it. */
VELMORA_API void VELMORA_CALL Exp2_Init(void);

/* ---- Pixel: integer and float conversions -------------------------------- */
/* Integer codes map linearly onto [0, 1] (times the float nearest 1/255 or 1/65535) and back
   (clamp to [0, 1] with NaN to 0, times 255 or 65535, round half to even). No source is changed.
   "Validating" kernels need src and dst 16-byte aligned and steps that are multiples of 16: they
   return StatusInvalidParameter (87), writing nothing, for a zero step, a null or unaligned pointer
   or a step not a multiple of 16, and StatusOk otherwise. The others accept any alignment (it only
   picks faster loads and stores) and return StatusOk or nothing. Overrun pixels are rewritten. */

/* Bgr24 -> Bgr32: copies B, G, R and writes 255 as the fourth byte. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Bgr24_Bgr32_SSE2(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                                                  int32_t dstStep, const ImageSize* roi);
/* Bgra32 -> Prgba128F: R, G, B times A (all scaled by 1/255), A kept. Overrun: odd widths one pixel, rewritten. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Bgra32_Prgba128F(const uint8_t* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, const ImageSize* roi);
/* Bgra32 -> Rgba128F, all four scaled by 1/255. Overrun: odd widths one pixel, rewritten. */
VELMORA_API void VELMORA_CALL ImageConvert_Bgra32_Rgba128F(const uint8_t* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, const ImageSize* roi);
/* Gray8 -> Bgr32, the gray byte in all four bytes. Validating. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Bgr32_SSE2(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                                                  int32_t dstStep, const ImageSize* roi);
/* Gray8 -> Bgra32, gray in B, G, R and the byte value 1 (not 255) in A. Validating. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Bgra32_SSE2(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                                                   int32_t dstStep, const ImageSize* roi);
/* Gray8 -> Rgb128F, gray/255 in all four floats. Validating. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Rgb128F_SSE2(const uint8_t* src, int32_t srcStep, float* dst,
                                                                    int32_t dstStep, const ImageSize* roi);
/* Gray8 -> Rgba128F, gray/255 in R, G, B and 1.0 in A. Validating. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Rgba128F_SSE2(const uint8_t* src, int32_t srcStep, float* dst,
                                                                     int32_t dstStep, const ImageSize* roi);
/* Rgb128F -> Bgr24, the fourth float dropped. Validating. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgb128F_Bgr24_SSE2(const float* src, int32_t srcStep, uint8_t* dst,
                                                                    int32_t dstStep, const ImageSize* roi);
/* Rgba128F -> Bgra32. Any alignment. Overrun: widths round up to a multiple of 4 pixels, rewritten. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba128F_Bgra32(const float* src, int32_t srcStep, uint8_t* dst,
                                                                 int32_t dstStep, const ImageSize* roi);
/* Rgba128F -> Rgba32. Overrun: widths round up to a multiple of 4 pixels, rewritten. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba128F_Rgba32(const float* src, int32_t srcStep, uint8_t* dst,
                                                                 int32_t dstStep, const ImageSize* roi);
/* Rgba128F -> Rgba64. Overrun: odd widths one pixel, rewritten. */
VELMORA_API void VELMORA_CALL ImageConvert_Rgba128F_Rgba64(const float* src, int32_t srcStep, uint16_t* dst,
                                                           int32_t dstStep, const ImageSize* roi);
/* Rgba32 -> Rgba128F, all four scaled by 1/255. Overrun: odd widths one pixel, rewritten. */
VELMORA_API void VELMORA_CALL ImageConvert_Rgba32_Rgba128F(const uint8_t* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, const ImageSize* roi);
/* Rgba64 -> Rgba128F, all four scaled by 1/65535. Any alignment. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba64_Rgba128F(const uint16_t* src, int32_t srcStep, float* dst,
                                                                 int32_t dstStep, const ImageSize* roi);


/* ---- Pixel: linearizing loaders ----------------------------------------- */

/* Shared by the ImageToLinearRGB_* loaders (always return StatusOk, check nothing): each colour
   code c goes through table (n floats) at position p = c x (n - 1.0001) / 255 (8-bit codes) or
   / 65535 (16-bit codes), single precision, interpolated linearly between T[floor p] and the next
   entry, exactly that formula. Where single precision rounds p to n - 1 (the top code of many
   table sizes; every code with n = 65536 and 16-bit codes lands on its own entry), the missing
   neighbour T[n] has weight 0 and the result is T[n - 1]; T[n] is never read (were p to round
   beyond n - 1, T[n - 1] would stand in for T[n]). (r, g, b) then times matrix as a row vector: R' = m0 r + m3 g + m6 b, G' = m1 r + m4 g
   + m7 b, B' = m2 r + m5 g + m8 b. Float destinations are not clamped; Rgba64 destinations clamp
   to [0, 1], scale by 65535 and round half to even. Overrun: source and destination rows are
   read and written up to the next multiple of the _X2/_X4/_X16 block: the destination pixels there
   are rewritten with loaded values. n < 2: the region (exactly width pixels) is zero-filled and
   neither source, table nor matrix is read. Any alignment; every loader returns StatusOk. */
/* Bgr24 to linear Rgba128F, alpha 1.0. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgr24_Rgba128F_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                           int32_t dstStep, const ImageSize* size,
                                                                           const float* table, int32_t n,
                                                                           const float* matrix);
/* Rgb24 to linear Rgba128F, alpha 1.0. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb24_Rgba128F_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                           int32_t dstStep, const ImageSize* size,
                                                                           const float* table, int32_t n,
                                                                           const float* matrix);
/* Bgr32 to linear Rgba128F: the Bgra32 loader itself, so the fourth byte becomes alpha (byte / 255). */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgr32_Rgba128F_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                           int32_t dstStep, const ImageSize* size,
                                                                           const float* table, int32_t n,
                                                                           const float* matrix);
/* Bgra32 to linear Rgba128F, alpha A x (float nearest 1/255). */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgra32_Rgba128F_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                            int32_t dstStep, const ImageSize* size,
                                                                            const float* table, int32_t n,
                                                                            const float* matrix);
/* Straight Bgra32 to Prgba128F: alpha A x (float nearest 1/255); the linear colour is multiplied by it after the matrix. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgra32_Prgba128F_SSE2_X4(const void* src, int32_t srcStep,
                                                                             void* dst, int32_t dstStep,
                                                                             const ImageSize* size, const float* table,
                                                                             int32_t n, const float* matrix);
/* Pbgra32 to Prgba128F: premultiplied codes linearized as they stand; alpha A x (float nearest 1/255). */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Pbgra32_Prgba128F_SSE2_X4(const void* src, int32_t srcStep,
                                                                              void* dst, int32_t dstStep,
                                                                              const ImageSize* size,
                                                                              const float* table, int32_t n,
                                                                              const float* matrix);
/* Second generation of the above: identical colour; alpha the correctly rounded A / 255 (1 ulp apart for 126 codes). */
VELMORA_API StatusCode VELMORA_CALL _ImageToLinearRGB_Pbgra32_Prgba128F_SSE2_X4(const void* src, int32_t srcStep,
                                                                               void* dst, int32_t dstStep,
                                                                               const ImageSize* size,
                                                                               const float* table, int32_t n,
                                                                               const float* matrix);
/* Gray8 to linear Rgba128F, alpha 1.0: v looked up once, the matrix applied to (v, v, v) (equals Bgr24 on grey). */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Gray8_Rgba128F_SSE2_X16(const void* src, int32_t srcStep,
                                                                            void* dst, int32_t dstStep,
                                                                            const ImageSize* size, const float* table,
                                                                            int32_t n, const float* matrix);
/* Bgr24 to linear Rgba64, alpha 65535. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgr24_Rgba64_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                         int32_t dstStep, const ImageSize* size,
                                                                         const float* table, int32_t n,
                                                                         const float* matrix);
/* Rgb24 to linear Rgba64, alpha 65535. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb24_Rgba64_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                         int32_t dstStep, const ImageSize* size,
                                                                         const float* table, int32_t n,
                                                                         const float* matrix);
/* Rgb48 to linear Rgba128F, alpha 1.0. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb48_Rgba128F_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                           int32_t dstStep, const ImageSize* size,
                                                                           const float* table, int32_t n,
                                                                           const float* matrix);
/* Rgb48 to linear Rgba64, alpha 65535. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb48_Rgba64_SSE2_X4(const void* src, int32_t srcStep, void* dst,
                                                                         int32_t dstStep, const ImageSize* size,
                                                                         const float* table, int32_t n,
                                                                         const float* matrix);
/* Rgba64 to linear Rgba128F, alpha A x (float nearest 1/65535). */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgba64_Rgba128F_SSE2_X2(const void* src, int32_t srcStep, void* dst,
                                                                            int32_t dstStep, const ImageSize* size,
                                                                            const float* table, int32_t n,
                                                                            const float* matrix);
/* Rgba64 to linear Rgba64: alpha takes the float path (A / 65535, clamp, x 65535, round), which returns every A unchanged. */
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgba64_SSE2_X2(const void* src, int32_t srcStep, void* dst,
                                                                   int32_t dstStep, const ImageSize* size,
                                                                   const float* table, int32_t n,
                                                                   const float* matrix);
/* In-place Rgba64: if table16 (65536 entries) is not null, R, G, B = table16[code] on an OpenMP team (static rows,
   OMP_NUM_THREADS honoured); then the matrix as above, rounded half to even with signed 16-bit saturation (above
   32767 stores 32767, every negative result stores 0x8000); alpha keeps its 16 bits. Even widths 2 pixels a step, odd widths
   1; no overrun. Returns StatusOk. */
VELMORA_API StatusCode VELMORA_CALL SSE_Linearize_Rgba64_VecX2(uint16_t* image, int32_t step, int32_t width,
                                                               int32_t height, const uint16_t* table16,
                                                               const float* matrix);


/* ---- Pixel: sRGB transfer ------------------------------------------------ */
/* All in place on four-float pixels (Rgb128F or Rgba128F), transforming all four lanes, alpha
   included (the fourth float is treated as a fourth colour value). One pixel is one vector: no
   overrun. Encoding: v < 0.0031308 ? 12.92 v : 1.055 v^(1/2.4) - 0.055; decoding:
   v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055)^2.4. No checks, no result; any alignment;
   exactly the region. */
/* Linear to sRGB by the fast vector power; no clamp: above 1 follows the power (2 -> 1.353),
   negatives the linear segment, NaN stays NaN. */
VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2(float* data, int32_t step, const ImageSize* roi);
/* Linear to sRGB by the runtime's powf per lane, input clamped to [0, 1] first (NaN -> 0). */
VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2_2(float* data, int32_t step, const ImageSize* roi);
/* Linear to sRGB by a 1024-step table built on the call's stack, interpolated linearly; input
   clamped to [0, 1]. The table is spaced 1/1023 but indexed by v x 1023.9999, so the curve is met
   at v x 1024/1023: 1 is reached from v = 1023/1024 on. */
VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2_Curve(float* data, int32_t step, const ImageSize* roi);
/* The same function as XMImageRGBToSRGB_Rgb128F_SSE2_Curve under a second name. */
VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2_Curve_2(float* data, int32_t step, const ImageSize* roi);
/* sRGB to linear by the fast vector power; no clamp: above 1 follows the power, negatives the
   linear segment, NaN stays NaN. */
VELMORA_API void VELMORA_CALL XMImageSRGBToRGB_Rgb128F_SSE2(float* data, int32_t step, const ImageSize* roi);
/* sRGB to linear by the interpolated table, as the encoding _Curve (clamped; met at v x 1024/1023). */
VELMORA_API void VELMORA_CALL XMImageSRGBToRGB_Rgb128F_SSE2_Curve(float* data, int32_t step, const ImageSize* roi);
/* Linear to sRGB by the interpolated table on the rectangle of width x height pixels whose top
   left pixel is (x, y): it starts at data + y x step bytes + x x 16 bytes, so a stretch of rows of
   a plane is (x = 0, y = first row, width = plane width, height = row count). No checks. */
VELMORA_API void VELMORA_CALL RGBToSRGB_Rgb128F_Lut(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                    int32_t height);
/* sRGB to linear by the interpolated table on a rectangle, arguments as RGBToSRGB_Rgb128F_Lut. */
VELMORA_API void VELMORA_CALL SRGBToRGB_Rgb128F_Lut(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                    int32_t height);


/* ---- Pixel: channel swizzles --------------------------------------------- */
/* Destination channel c of each pixel takes source channel order[c]; the region is the width x height
   pixels at (x, y) of both planes. Entries must be 0..channels-1 of the source: other entries are not
   guarded and give unspecified values (possibly a neighbour's channel, the same on every processor;
   nothing outside the region is read). C3C4: entries of 3 or more write
   `fill` (8u and 16u use its low 8 or 16 bits). In place (IR): each pixel is read whole before it is
   written, so repeated entries act as if from a copy. No overrun; any alignment; nothing is checked;
   returns StatusOk, and the order is not read when width or height is below 1. */
VELMORA_API StatusCode VELMORA_CALL Swizzle_8u_C3R(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_8u_C4R(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_8u_C3C4R(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order, uint32_t fill);
VELMORA_API StatusCode VELMORA_CALL Swizzle_8u_C4C3R(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_8u_C3IR(uint8_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                 int32_t height, const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_8u_C4IR(uint8_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                 int32_t height, const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_16u_C3R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_16u_C4R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_16u_C3C4R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order, uint32_t fill);
VELMORA_API StatusCode VELMORA_CALL Swizzle_16u_C4C3R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_16u_C3IR(uint16_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                 int32_t height, const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_16u_C4IR(uint16_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                 int32_t height, const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_32f_C3R(const float* src, int32_t src_step, float* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_32f_C4R(const float* src, int32_t src_step, float* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_32f_C3C4R(const float* src, int32_t src_step, float* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order, float fill);
VELMORA_API StatusCode VELMORA_CALL Swizzle_32f_C4C3R(const float* src, int32_t src_step, float* dst, int32_t dst_step,
                                                 int32_t x, int32_t y, int32_t width, int32_t height,
                                                 const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_32f_C3IR(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                 int32_t height, const int32_t* order);
VELMORA_API StatusCode VELMORA_CALL Swizzle_32f_C4IR(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                                 int32_t height, const int32_t* order);

/* ---- Adjust: develop pass ------------------------------------------------ */

/* One adjustment of the develop pass: a global amount (0 = off) and an optional per-pixel local
   amount plane added to it (null = none), packed width x height floats, row step width x 4 bytes. */
typedef struct DevelopParameter {
    float amount;
    const float* localMap;
} DevelopParameter;

/* The develop pass, in place on linear ProPhoto RgbL128F (R, G, B, base luminance L): exposure,
   brightness, shadows, highlights, contrast, clarity, saturation. Any local map selects the masked
   pass (black level subtracted, amounts below 1e-6 off, shadows/highlights maps only select it);
   otherwise an amount is on when |amount| >= 0.0001f (the float, widened to double, so 0.0001f
   itself is on). All seven records must be given; the six reserved words are ignored. Shadows and
   highlights run as one step with both global amounts, on when either is. A base pushed past 1 or
   below 0 (contrast of 2 or more) keeps finite tone weights: their power bases are held at 0.
   Overrun: rows run in groups of four pixels, so up to 3 pixels past the width are read and
   rewritten with processed values (maps are read only inside the region). Any alignment. Always
   returns StatusOk. The fourth lane L is the base: a smoothed ProPhoto luminance 0.28804 R +
   0.711874 G + 0.000086 B of the same pixel. Clarity, shadows and highlights act on the detail
   between the pixel's luminance and L, so an edge-preserving smoothing of the luminance (a guided
   or bilateral filter, radius about 1 % of the shorter side) gives halo-free results; a plain blur
   leaves dark or bright rims along strong edges; L equal to the pixel's own luminance turns clarity
   off. */
VELMORA_API StatusCode VELMORA_CALL ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(
    float* image, int32_t step, const ImageSize* roi, const DevelopParameter* exposure,
    const DevelopParameter* brightness, const DevelopParameter* shadows, const DevelopParameter* highlights,
    const DevelopParameter* contrast, const DevelopParameter* clarity, const DevelopParameter* saturation,
    int32_t reserved0, int32_t reserved1, int32_t reserved2, float blackLevel, int32_t reserved3,
    int32_t reserved4, int32_t reserved5);


/* ---- Adjust: exposure, brightness, saturation, levels --------------------- */

/* Exposure record, passed by value (five 32-bit words, 20 bytes on the 32-bit stack): amount in
   stops; an optional plane of extra stops, one float per pixel, rows localStep bytes apart. */
typedef struct ExposureParameter {
    float amount;
    const float* localMap;
    int32_t localStep;
    int32_t reserved[2]; /* accepted and not read */
} ExposureParameter;

/* General failure (0x80004005): only ImageAdjustExposureSelective_Rgba128F_SSE2 returns it.
   Every kernel of this family accepts any alignment and touches exactly the region (the last
   partial group of four pixels runs on a copy); the void ones check nothing. */
#define StatusFailure ((StatusCode)0x80004005u)

/* dst = src x 2^exposure on all four lanes (exp2f once per call), plain scalar loop. No checks; src may be dst. */
VELMORA_API void VELMORA_CALL ImageAdjustExposure_Rgba128F(const float* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, const ImageSize* roi, float exposure);
/* As ImageAdjustExposure_Rgba128F, one pixel per vector; bit-identical results. */
VELMORA_API void VELMORA_CALL ImageAdjustExposure_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                int32_t dstStep, const ImageSize* roi,
                                                                float exposure);
/* In place: every lane x powf(2, amount), or with a local map x powf(2, clamp(amount + local, -5, 5)) per
   pixel. reserved, reserved1 and reserved2 are accepted and not read (their meaning is not settled). No checks. */
VELMORA_API void VELMORA_CALL ImageAdjustExposureEtc_Rgba128F_SSE2(float* image, int32_t step, int32_t width,
                                                                   int32_t height, ExposureParameter exposure,
                                                                   ExposureParameter reserved, float reserved1,
                                                                   float reserved2);
/* In place, by tone band. t = sRGB-encoded ProPhoto luminance of the pixel (clamped to [0, 1]) indexes
   1025-entry band tables (step 1/1024, linear interpolation): blacks e^(-50t^2), shadows
   e^(-4.5t^2) - e^(-50t^2), midtones e^(-28.125(t-0.5)^2), highlights e^(-4.5(1-t)^2) - e^(-50(1-t)^2),
   whites e^(-50(1-t)^2). Every lane x 2^clamp(amount + local + sum(band amount x weight), -5, 5): exactly 1
   when everything is 0. StatusFailure (nothing touched) unless step is a multiple of 64; else StatusOk. */
VELMORA_API StatusCode VELMORA_CALL ImageAdjustExposureSelective_Rgba128F_SSE2(
    float* image, int32_t step, const ImageSize* roi, ExposureParameter exposure, float blacks, float shadows,
    float midtones, float highlights, float whites);
/* Lightness power curve with Rec.709 luminance: L = CIE lightness / 100 of Y, L' = L x L whatever the amount
   (the amount is not applied; the linear branch uses Y x 0.9032963), all lanes x (Y' + eps) / (Y + eps). */
VELMORA_API void VELMORA_CALL ImageAdjustBrightness_Rgba128F(const float* src, int32_t srcStep, float* dst,
                                                             int32_t dstStep, const ImageSize* roi, float amount);
/* Lightness power curve: L' = L^(2^amount) by the library's own polynomial log2 and 2^x, all lanes x
   (Y' + eps) / (Y + eps). Four pixels per iteration; the last partial group touches only real pixels. */
VELMORA_API void VELMORA_CALL ImageAdjustBrightness_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, const ImageSize* roi,
                                                                  float amount);
/* In place, every lane c = Y + (c - Y) x f, f = 1 + saturation + HSV saturation x vibrance (+ local), Y the
   ProPhoto luminance; no clamp. |saturation|, |vibrance| < 1e-6 count as 0; all off and no map: untouched. */
VELMORA_API void VELMORA_CALL ImageAdjustSaturation_Rgba128F_SSE2(float* image, int32_t step, int32_t width,
                                                                  int32_t height, float saturation,
                                                                  float vibrance, const float* localMap,
                                                                  int32_t localStep);
/* In place, every lane x = clamp((x - black) / (white - black), 0, 1); NaN becomes 0; white == black is not
   guarded. */
VELMORA_API void VELMORA_CALL ImageLevels_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                        float black, float white);


/* ---- Adjust: curves ------------------------------------------------------- */
/* Each sample of the width x height region at (x, y) (x in pixels) maps through a float table T with
   linear interpolation: position p, k = trunc(p), T[k] + (T[k+1] - T[k]) * (p - k). Rows top to bottom;
   nothing is checked; no overrun; any alignment (it only picks faster loads); a height below 1
   returns at once. All return StatusOk. IR forms pass
   the one plane as source and destination. */
/* 16u: n = the table's interval count; p = code * (n * 1/65535 in float), so code 65535 reads T[n+1]:
   the table holds n + 2 entries, the last repeating T[n]. Output clamp(v, 0, 1) * 65535 + 0.5,
   truncated (round half up; NaN gives 0). C3/C4 send every channel through the curve (C4: alpha too);
   AC4 maps the three colour samples and never writes the destination's alpha. */
VELMORA_API StatusCode VELMORA_CALL Curve_16u_C1R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, int32_t n);
VELMORA_API StatusCode VELMORA_CALL Curve_16u_C1IR(uint16_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, int32_t n);
VELMORA_API StatusCode VELMORA_CALL Curve_16u_C3R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, int32_t n);
VELMORA_API StatusCode VELMORA_CALL Curve_16u_C3IR(uint16_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, int32_t n);
VELMORA_API StatusCode VELMORA_CALL Curve_16u_C4R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, int32_t n);
VELMORA_API StatusCode VELMORA_CALL Curve_16u_C4IR(uint16_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, int32_t n);
VELMORA_API StatusCode VELMORA_CALL Curve_16u_AC4R(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, int32_t n);
VELMORA_API StatusCode VELMORA_CALL Curve_16u_AC4IR(uint16_t* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, int32_t n);
/* 32f: p = clamp(x, 0, 1) * scale (NaN input counts as 0); the table holds trunc(scale) + 2 entries
   (one past the last interval is read at x = 1). The result is stored unclamped. C3/C4: every channel,
   alpha included, through the same curve. */
VELMORA_API StatusCode VELMORA_CALL Curve_32f_C1R(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, float scale);
VELMORA_API StatusCode VELMORA_CALL Curve_32f_C1IR(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, float scale);
VELMORA_API StatusCode VELMORA_CALL Curve_32f_C3R(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, float scale);
VELMORA_API StatusCode VELMORA_CALL Curve_32f_C3IR(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, float scale);
VELMORA_API StatusCode VELMORA_CALL Curve_32f_C4R(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, float scale);
VELMORA_API StatusCode VELMORA_CALL Curve_32f_C4IR(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, float scale);
/* One curve per channel of four-channel float pixels, as the float kernel does it: the table is
   trunc(scale) + 2 records of four floats, record i holding the R, G, B, A curves' values at position i
   (channel c reads column c). An identity alpha curve keeps alpha up to interpolation rounding. */
VELMORA_API StatusCode VELMORA_CALL Curve4_32f_C4R(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t x,
                                             int32_t y, int32_t width, int32_t height, const float* table, float scale);
VELMORA_API StatusCode VELMORA_CALL Curve4_32f_C4IR(float* data, int32_t step, int32_t x, int32_t y, int32_t width,
                                             int32_t height, const float* table, float scale);

/* ---- Adjust: Lab conversions ---------------------------------------------- */

/* Blocked Lab128F: per four pixels of a row, 16 floats: L* x4, a* x4, b* x4, then 116 f(lane 4) - 16 x4. */
/* In place, linear ProPhoto RGB (D50) to Lab128F (D50 white 0.96422, 1, 0.82521). Rows go in whole blocks
   of four pixels: overrun up to three pixels past the width, read and rewritten. No checks; any alignment. */
VELMORA_API void VELMORA_CALL XMImageConvertToLab_ProPhotoRgb128F_SSE2(float* image, int32_t step,
                                                                       const ImageSize* roi);
/* In place, Lab128F to linear ProPhoto RGB with lane 4 = 0; Y takes the linear branch only for L* <= 0.008856452
   (deliberately L*, not kappa x eps). Whole blocks of four pixels: overrun up to three pixels, read and
   rewritten. No checks; any alignment. */
VELMORA_API void VELMORA_CALL XMImageConvertToProPhotoRGB_Lab128F_SSE2(float* image, int32_t step,
                                                                       const ImageSize* roi);

/* Interleaved Lab: each pixel's four floats hold L*, a*, b* and a fourth lane these kernels leave
   untouched. In place, exactly the region (no overrun), no checks unless stated, any alignment.
   White and constants as above (D50); cube roots as e^(ln t / 3). The sRGB variants use the sRGB
   primaries adapted to D50 (Bradford), rows X, Y, Z: 0.4360747 0.3850649 0.1430804 / 0.2225045
   0.7168786 0.0606169 / 0.0139322 0.0971045 0.7141733, inverse 3.1338564 -1.6168668 -0.4906148 /
   -0.9787686 1.9161416 0.0334541 / 0.0719452 -0.2289913 1.4052427, and the vector sRGB curve of
   XMImageRGBToSRGB_Rgb128F_SSE2 / XMImageSRGBToRGB_Rgb128F_SSE2 (no clamp, no table).
   Upper-case LAB is Lab normalised to [0, 1] for curves and integer storage: L* / 100,
   (a* + 128) / 255, (b* + 128) / 255 (back: Ln x 100, an x 255 - 128). The LAB inverses are the
   textbook CIE ones (cube branch for L* > 8); the lower-case Lab inverses keep the blocked
   conversion's rule (cube branch for L* > 0.008856452), so they agree with it. */
/* Linear ProPhoto RGB to Lab. */
VELMORA_API void VELMORA_CALL XMImageRGBToLab_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi);
/* Lab to linear ProPhoto RGB (the blocked conversion's arithmetic). */
VELMORA_API void VELMORA_CALL XMImageLabToRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi);
/* sRGB-encoded sRGB to Lab: decode, sRGB-D50 matrix, Lab. */
VELMORA_API void VELMORA_CALL XMImageSRGBToLab_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi);
/* Lab to sRGB-encoded sRGB: inverse, inverse matrix, encode (no clamp: out-of-gamut colours leave [0, 1]). */
VELMORA_API void VELMORA_CALL XMImageLabToSRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi);
/* Normalised LAB to linear ProPhoto RGB, textbook inverse. */
VELMORA_API void VELMORA_CALL XMImageLABToRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi);
/* Normalised LAB to sRGB-encoded sRGB, textbook inverse; R, G, B clamped to [0, 1] after encoding
   (NaN to 0), ready for display. */
VELMORA_API void VELMORA_CALL XMImageLABToSRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi);
/* sRGB-encoded RGB to normalised LAB with the caller's RGB-to-XYZ matrix (9 floats, row-major, rows X,
   Y, Z; null: sRGB-D50) and reference white (Xn, Yn, Zn dividing X, Y, Z; null: D50 as above). Input
   decoded by the vector curve. Returns StatusInvalidParameter, touching nothing, for a zero step, a null
   image or roi, or a white with a component <= 0 or not finite; StatusOk otherwise. */
VELMORA_API StatusCode VELMORA_CALL XMImageSRGBToLAB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                                 const float* rgbToXyz, const float* white);
/* Edits on blocked Lab128F: L* <- clamp(L* + 100 lightness, 0, 100); then the develop pass's contrast
   S-curve s(t) = (t - 0.5) / (max(t - 0.5, 0.5 - t) + 0.5) + 0.5 on t = L* / 100 with amount contrast
   (-1..1), applied as L* + (100 s(t) - L*) x contrast (so contrast 0 leaves L* exactly) and clamped to
   [0, 100]; (a*, b*) rotated by hue degrees counter-clockwise (cos and sin in double, once per call)
   and scaled by 1 + chroma; the fourth block row kept. Whole blocks of four pixels: overrun up to three
   pixels, read and rewritten. No checks; any alignment. */
VELMORA_API void VELMORA_CALL XMImageAdjust_Lab128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                         float lightness, float contrast, float chroma, float hue);
/* Lab round trip without a Lab buffer, on linear ProPhoto RGB: per pixel to Lab, L* / 100 through the
   curve as the float curve kernels do it (n intervals, lCurve holds n + 2 floats, the last repeating the
   end; position clamp(L* / 100, 0, 1) x n) times 100 with no clamp, a* and b* times 1 + chroma, back by
   the blocked conversion's arithmetic. Alpha kept. */
VELMORA_API void VELMORA_CALL XMImageLoopLab_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                           const float* lCurve, int32_t n, float chroma);

/* ---- Adjust: colour twists, transforms and the matrix product --------------- */
/* Matrices are row-major with one row per output channel (a pixel is a column vector), unlike the
   linearizing loaders' row-vector matrices. A 3 x 4 matrix's fourth column is an offset in float units.
   Each output is summed left to right, ((m_i0 s_0 + m_i1 s_1) + m_i2 s_2) + m_i3 s_3 (4 x 4) or
   + m_i3 (3 x 4), without fused multiply-add. Exactly the region, any alignment, no checks; the
   twists are matrix style (the kernel offsets the planes by x, y) and return StatusOk. C3 pixels are
   three packed floats (12 bytes); AC4 leaves the destination's fourth float as it was. */
VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_C4R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                      int32_t x, int32_t y, int32_t width, int32_t height,
                                                      const float* twist);
VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_C4IR(float* image, int32_t step, int32_t x, int32_t y, int32_t width,
                                                       int32_t height, const float* twist);
VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_C3R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                      int32_t x, int32_t y, int32_t width, int32_t height,
                                                      const float* twist);
VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_AC4R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                       int32_t x, int32_t y, int32_t width, int32_t height,
                                                       const float* twist);
VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                        int32_t width, int32_t height, const float* twist);
/* R, G, B through a 3 x 4 matrix (say ProPhoto to sRGB primaries), alpha carried: float to float;
   src and dst may be the same plane (in place). */
VELMORA_API void VELMORA_CALL ColorTransform_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, const ImageSize* roi, const float* m);
/* Bgra32 to Rgba128F: bytes times the float nearest 1/255 (alpha too), B and R exchanged, then the matrix. */
VELMORA_API void VELMORA_CALL ColorTransform_Bgra32_Rgba128F_SSE2(const uint8_t* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, const ImageSize* roi,
                                                                  const float* m);
/* Rgba128F to Bgra32: the matrix, then all four lanes clamped to [0, 1] (NaN to 0), times 255, rounded
   half to even, stored B, G, R, A. */
VELMORA_API void VELMORA_CALL ColorTransform_Rgba128F_Bgra32_SSE2(const float* src, int32_t srcStep, uint8_t* dst,
                                                                  int32_t dstStep, const ImageSize* roi,
                                                                  const float* m);
/* c = a b for row-major a (rows x inner), b (inner x cols), c (rows x cols); each element summed in
   double, k ascending, and rounded to float once. Returns StatusInvalidParameter, writing nothing, for a
   null pointer, a size below 1, or c's bytes overlapping a's or b's (a and b may alias each other). */
VELMORA_API StatusCode VELMORA_CALL MatrixMult(const float* a, const float* b, float* c, int32_t rows, int32_t inner,
                                              int32_t cols);

/* ---- Adjust: YCbCr, YUV, CMY ------------------------------------------------ */
/* Formulas run as written, left to right, without clamping unless stated. Exactly the region, any
   alignment, no checks; matrix-style kernels return StatusOk. */
/* Full-range BT.601 (JFIF): Y = 0.299R + 0.587G + 0.114B; Cb = -0.168736R - 0.331264G + 0.5B + 0.5;
   Cr = 0.5R - 0.418688G - 0.081312B + 0.5; the fourth channel copied. */
VELMORA_API StatusCode VELMORA_CALL RGBToYCbCr_32f_C4R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                      int32_t x, int32_t y, int32_t width, int32_t height);
/* R = Y + 1.402(Cr - 0.5); G = Y - 0.344136(Cb - 0.5) - 0.714136(Cr - 0.5); B = Y + 1.772(Cb - 0.5). */
VELMORA_API StatusCode VELMORA_CALL YCbCrToRGB_32f_C4R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                      int32_t x, int32_t y, int32_t width, int32_t height);
VELMORA_API StatusCode VELMORA_CALL YCbCrToRGB_32f_C4IR(float* image, int32_t step, int32_t x, int32_t y, int32_t width,
                                                       int32_t height);
/* Analogue BT.601: Y = 0.299R + 0.587G + 0.114B, U = 0.492111(B - Y), V = 0.877283(R - Y); fourth copied. */
VELMORA_API void VELMORA_CALL RGBToYUV_Rgb128F(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                               const ImageSize* roi);
/* R = Y + 1.139883V; G = Y - 0.394642U - 0.580622V; B = Y + 2.032062U; fourth copied. */
VELMORA_API void VELMORA_CALL YUVToRGB_Rgb128F(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                               const ImageSize* roi);
/* C, M, Y = 1 - R, 1 - G, 1 - B; the destination's alpha left as it was. */
VELMORA_API StatusCode VELMORA_CALL RGBToCMY_32f_AC4R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                     int32_t x, int32_t y, int32_t width, int32_t height);
VELMORA_API StatusCode VELMORA_CALL RGBToCMY_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y, int32_t width,
                                                      int32_t height);
/* K = clamp(blackGeneration (1 - max(R, G, B)), 0, 1); C = (1 - R - K) / (1 - K), 0 where K >= 1, likewise
   M and Y; writes C, M, Y, K (alpha dropped), no other clamp. */
VELMORA_API StatusCode VELMORA_CALL RGBToCMYK_32f_AC4C4R(const float* src, int32_t srcStep, float* dst,
                                                        int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                        int32_t height, float blackGeneration);


/* ---- Adjust: tone curves, mid-tones, colour balance, hue and saturation ------------------ */
/* In place on Rgba128F unless stated; alpha kept; exactly the region; any alignment; no checks unless
   stated. Float tables follow the curve kernels: n intervals, n + 2 floats (the last repeating the end),
   p = clamp(x, 0, 1) n, k = trunc(p), T[k] + (T[k + 1] - T[k]) (p - k), no output clamp. Y = 0.28804 R +
   0.711874 G + 0.000086 B; l = enc(Y) and dec by the sRGB tables (1025 entries, built per call); the
   gain rule multiplies R, G, B by (N + eps) / (Y + eps), eps = 1.1920929e-07. */
/* Master curve: R, G, B each through the one table. */
VELMORA_API void VELMORA_CALL SSE2_ToneCurve_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                      const float* table, int32_t n);
/* Four tables back to back (R, G, B, master; n + 2 floats each): each channel through its own, then
   through the master. */
VELMORA_API void VELMORA_CALL SSE2_ToneCurveRGB_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                         const float* tables, int32_t n);
/* Curve on the encoded luminance: N = dec(T(enc(Y))), then the gain rule (hue and saturation kept). */
VELMORA_API void VELMORA_CALL SSE2_ToneCurveLuminance_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                               const float* table, int32_t n);
/* Parametric curve: params = shadows, darks, lights, highlights (each in [-1, 1]), splits s1, s2, s3.
   The curve is sampled at x = i / 1024 (i = 0..1024, the end repeated) in double: y = x + sum of
   a_k 0.25 sin^2(pi (x - l_k) / (u_k - l_k)) over the regions [0, s1], [s1, s2], [s2, s3], [s3, 1]
   holding x, made monotone by a running maximum and clamped to [0, 1]; then applied as the master curve
   (mode 0) or on the luminance (mode 1). Returns StatusInvalidParameter, touching nothing, for a zero
   step, a null image, roi or params, an amount outside [-1, 1], splits not 0 < s1 < s2 < s3 < 1 (NaN
   included), or another mode; StatusOk otherwise. */
VELMORA_API StatusCode VELMORA_CALL SSE2_ToneCurveParametric_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                                     const float* params, int32_t mode);
/* 8-bit preview on Bgra32: each of B, G, R looked up in its 256 bytes of lut (B, then G, then R); alpha kept. */
VELMORA_API void VELMORA_CALL SSE2_ToneCurve_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi,
                                                    const uint8_t* lut);
/* Mid-tone (gamma) slider on one float plane, matrix style: v' = clamp(v, 0, 1)^g, g = 2^(-amount) (powf once
   a call, e^(g ln v) a sample): 0 stays 0, 1 stays 1 within the vector power's accuracy, amount > 0
   brightens. Returns StatusOk. */
VELMORA_API StatusCode VELMORA_CALL MidTones_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                    int32_t x, int32_t y, int32_t width, int32_t height, float amount);
/* Colour balance: balance[3 r + c] for range r (shadows, midtones, highlights) and channel c (R, G, B), each
   in [-1, 1] (cyan-red, magenta-green, yellow-blue). Channel c times 2^(wS a_0c + wM a_1c + wH a_2c), the
   tonal weights wS = (1 - l)^2, wM = 2l(1 - l), wH = l^2 of the input's l; preserveLuminosity != 0 then
   applies the gain rule back to the input's Y. */
VELMORA_API void VELMORA_CALL Adjust_Rgba128F_SSE(float* image, int32_t step, const ImageSize* roi,
                                                  const float* balance, int32_t preserveLuminosity);
/* Master hue/saturation: R, G, B rotated by hue degrees about the grey axis (Rodrigues, axis (1, 1, 1) /
   sqrt 3, right-handed: +hue turns red toward yellow; the matrix in double, once a call), the gain rule
   back to the old Y; then c <- Y + (c - Y)(1 + saturation) with that old Y; then lightness l: c (1 + l)
   for l < 0, c + (1 - c) l for l > 0. No clamp anywhere; values as given. A hue, saturation or lightness of 0
   skips its step, so zero amounts change no bit. */
VELMORA_API void VELMORA_CALL XMImageHueSaturation_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                                 float hue, float saturation, float lightness);

/* HSL by hue band: eight bands centred at 0 (red), 30 (orange), 60 (yellow), 120 (green), 180 (aqua), 240
   (blue), 270 (purple) and 300 (magenta) degrees of the pixel's hexcone hue h; in the segment between
   neighbouring centres c_k <= h < c_k+1, t = (h - c_k) x (float nearest 1 / (c_k+1 - c_k)), band k weighs 1 - t and band k + 1
   (magenta's neighbour is red at 360) t. bands = 24 floats in [-1, 1]: hue[8], saturation[8], luminance[8];
   each sum is (1 - t) a_k + t a_k+1. In this order: h' = h + 30 degrees x hue sum, R, G, B rebuilt at the
   same HSV saturation and value (h' wrapped by whole turns, h' - 360 floor(h' x 1/360), sector and fraction
   from h' x 1/60, the reciprocals as floats); c <- Y + (c - Y)(1 + saturation sum), Y of that pixel; R, G, B times
   2^(s x luminance sum), s = (max - min) / max of the original. A pixel with max - min = 0 or max <=
   1.1920929e-07 is grey: every sum 0. A zero sum skips its step, so zero amounts change no bit. Alpha kept;
   in place; exactly the region; any alignment; no checks. */
/* One pixel at a time, bit-equal to the four-pixel export. */
VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F(float* image, int32_t step, const ImageSize* roi, const float* bands);
VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                       const float* bands);
/* Hue-keyed curves in place of the bands: curves = hue-vs-hue, hue-vs-saturation, hue-vs-luminance, 361 floats
   each per degree (entry 360 = entry 0), T[k] + (T[k + 1] - T[k]) (h - k) at k = trunc(h), used as the three
   sums (the hue curve in the bands' units of 30 degrees). */
VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F_SSE2_Lut(float* image, int32_t step, const ImageSize* roi,
                                                           const float* curves);
/* 8-bit preview on Bgra32: bytes times the float nearest 1/255 as they stand, the same maths, written back
   clamped, times 255, rounded half to even; alpha kept. */
VELMORA_API void VELMORA_CALL Adjust_HSL_Bgra32_SSE2(uint8_t* image, int32_t step, const ImageSize* roi,
                                                     const float* bands);
/* Selective colour: table = 9 ranges (reds, yellows, greens, cyans, blues, magentas, whites, neutrals, blacks)
   x (cyan, magenta, yellow, black) in [-1, 1]. With max >= mid >= min of the source's R, G, B: the primary
   range of the largest channel weighs max - mid, the secondary range of the two largest (yellows R+G, cyans
   G+B, magentas B+R) mid - min, whites clamp(2 min - 1, 0, 1), blacks clamp(1 - 2 max, 0, 1), neutrals
   max(0, 1 - whites - blacks - (max - min)) (ties give every range they could name the weight, which is
   then 0). Cyan acts on R, magenta on G, yellow on B: c <- clamp(c - s k, 0, 1), s = sum over the ranges
   in table order of weight x (ink + black), k = 1 - c (relative != 0) or 1. Alpha copied; exactly the
   region; any alignment; no checks. */
VELMORA_API void VELMORA_CALL XMImageSelectiveColor(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                    const ImageSize* roi, const float* table, int32_t relative);
/* 3D LUT: the caller's n x n x n cube of RGB nodes (3 floats each, red index fastest as in .cube files).
   R, G, B clamped to [0, 1] (NaN to 0) and scaled by n - 1; the cell's lower corner is the truncated
   position held to n - 2 (the top edge is fraction 1 in the last cell: the last node exactly, nothing past
   the cube read). interpolation 0: trilinear, corner weights ((wr wg) wb), w = 1 - f or f, summed in
   corner order b g r from 000 to 111; 1: tetrahedral (Kasson et al. 1995), sorted fractions f1 >= f2 >= f3:
   ((1 - f1) C000 + (f1 - f2) Ca + (f2 - f3) Cb) + f3 C111, left to right. Alpha copied; exactly the region;
   any alignment. Returns StatusInvalidParameter, writing nothing, for a zero step, a null src, dst, roi or
   cube, n outside 2..256 or another interpolation; StatusOk otherwise. */
VELMORA_API StatusCode VELMORA_CALL XMImage3DLut_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                              int32_t dstStep, const ImageSize* roi, const float* cube,
                                                              int32_t n, int32_t interpolation);

/* ---- Adjust: colourise ------------------------------------------------------- */
/* Toning with colours at the picture's own luminance: out = c + amount (T - c) on R, G, B, with
   Y = 0.28804 R + 0.711874 G + 0.000086 B (linear ProPhoto) and l = Y through the sRGB encoding
   table (1025 entries, built per call, as XMImageRGBToSRGB_Rgb128F_SSE2_Curve). A colour C (linear
   RGB) tones by its chromaticity C / Y(C); a colour with Y(C) <= 1.1920929e-07 counts as grey,
   (1, 1, 1). One colour: T = Y C / Y(C) (a full amount keeps Y). Split toning (colors = shadow
   colour, highlight colour): T = Y mix(Cs / Y(Cs), Ch / Y(Ch), h), mix(a, b, h) = a + (b - a) h,
   h = smoothstep(p - 0.25, p + 0.25, l) = t^2 (3 - 2t), t = clamp((l - (p - 0.25)) / ((p + 0.25) -
   (p - 0.25)), 0, 1), p = 0.5 - 0.5 balance (balance in [-1, 1]). Three-way (shadows, midtones,
   highlights): T = Y (wS C0 / Y(C0) + wM C1 / Y(C1) + wH C2 / Y(C2)), wS = (1 - l)^2, wM = 2l(1 - l),
   wH = l^2. Matrix-style colours are 3 floats each, own-style ones 4 (the fourth unread). AC4: the
   destination's alpha is not written; own style: alpha kept. The own-style exports give colour lanes
   bit-equal to their matrix-style twins. Exactly the region, any alignment, no checks unless stated. */
VELMORA_API StatusCode VELMORA_CALL Colorize_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y, int32_t width,
                                                      int32_t height, const float* color, float amount);
VELMORA_API StatusCode VELMORA_CALL DoubleColorize_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                            int32_t width, int32_t height, const float* colors,
                                                            float balance, float amount);
VELMORA_API StatusCode VELMORA_CALL DoubleColorize_32f_AC4R(const float* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                           int32_t height, const float* colors, float balance,
                                                           float amount);
VELMORA_API StatusCode VELMORA_CALL TripleColorize_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                            int32_t width, int32_t height, const float* colors,
                                                            float amount);
VELMORA_API StatusCode VELMORA_CALL TripleColorize_32f_AC4R(const float* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                           int32_t height, const float* colors, float amount);
VELMORA_API void VELMORA_CALL SSE_Colorize_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                    const float* color, float amount);
VELMORA_API void VELMORA_CALL SSE_DoubleColorize_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                          const float* colors, float balance, float amount);
VELMORA_API void VELMORA_CALL SSE_TripleColorize_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                          const float* colors, float amount);
/* Gradient map: T = the stops' colour at position l, stops = n records of (position, R, G, B) with
   positions non-decreasing in [0, 1]: linear between neighbours, the first stop's colour below it, the
   last one's above, the later stop where positions repeat (not luminance-preserving). Returns
   StatusInvalidParameter, touching nothing, for a zero step, a null image, roi or stops, n < 2, or a
   position outside [0, 1] (NaN included) or below its predecessor; StatusOk otherwise. */
VELMORA_API StatusCode VELMORA_CALL SSE_GradientColorize_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                                 const float* stops, int32_t n, float amount);
/* 8-bit preview of SSE_Colorize_Rgba128F on Bgra32: bytes times the float nearest 1/255 as they stand (no
   decoding), written back clamped, times 255, rounded half to even; alpha kept. */
VELMORA_API void VELMORA_CALL SSE_Colorize_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi,
                                                  const float* color, float amount);


/* ---- Filter ---------------------------------------------------------------- */

/* ---- Filter: blurs and separable convolutions ---------------------------- */
/* None of these checks anything or returns a status; any alignment; a region with no rows or
   columns does nothing. Each belongs to one of two border rules:
    - MARGIN-READING: never tests a border; reads the stated number of pixels beyond the region on
      every side (or the filtered sides), which the caller guarantees exist in the same plane
      (same step, negative offsets from the region's first pixel).
    - CLIPPING: reads only inside the readable area (the region, widened by any margins given)
      and divides each output by the weights it actually used (box filters: by the pixel count).
   Writes: exactly the destination region, plus what is said below. "Transposed" means row y of
   the input becomes column y of the output: the output has `count` rows of `rows` pixels.
   Four-float pixels filter all four lanes alike, alpha included. Running sums and prefix sums
   are never recomputed along a row, so their results drift by a few ulps from exact means.
   Kernels are float arrays of odd length 2r+1, centre at index r, and need not be normalised.
   Packed margins (uint32): byte 0 = readable pixels left of the region, byte 1 = rows above,
   byte 2 = pixels right, byte 3 = rows below. Scratch planes live only during the call. */

/* One box mean of radius r across, then down. Margin-reading: r pixels on every side. */
VELMORA_API void VELMORA_CALL BoxBlur_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                    const ImageSize* roi, int32_t radius);
/* Three box means of radius r each way: a Gaussian of variance r(r+1). Margin-reading: 3r pixels
   on every side. The SOURCE IS DESTROYED: the region and its 2r margin are overwritten (scratch). */
VELMORA_API void VELMORA_CALL FastGaussianBlur_Rgba128F_SSE2(float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                             const ImageSize* roi, int32_t radius);
/* One weighted pass along `rows` rows of `count` pixels, written transposed. Clipping at the row
   ends: kernel (2r+1 weights). rect is ignored and may be null. */
VELMORA_API void VELMORA_CALL BlurTranspose_Rgba128F_SSE(const float* src, int32_t srcStep, float* dst,
                                                         int32_t dstStep, int32_t count, int32_t rows,
                                                         const float* kernel, int32_t radius, const ImageRect* rect);
/* As BlurTranspose_Rgba128F_SSE for a symmetric kernel (only kernel[r..2r] is read: centre, then
   each pair of taps, left before right), not normalised. Margin-reading: r pixels at both row ends. */
VELMORA_API void VELMORA_CALL DangerousBlurTranspose_Rgba128F_SSE(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, int32_t count, int32_t rows,
                                                                  const float* kernel, int32_t radius,
                                                                  const ImageRect* rect);
/* Two DangerousBlurTranspose passes with r = kernelSize/2 (integer division: pass 2r+1 weights
   even for an even kernelSize). Margin-reading: r pixels on every side. rect is ignored. */
VELMORA_API void VELMORA_CALL GaussianBlur_Rgba128F_SSE(const float* src, int32_t srcStep, float* dst,
                                                        int32_t dstStep, int32_t width, int32_t height,
                                                        const float* kernel, int32_t kernelSize,
                                                        const ImageRect* rect);
/* Separable convolution, kernelX across then kernelY down (centre at size/2; taps -(size/2) to
   size-size/2-1, so even sizes reach one further left). Clipping within the region widened by the
   packed margins. src and dst may be the same plane (same pointer and step). */
VELMORA_API void VELMORA_CALL XMImageConvolution_Rgba128F_SSE2(int32_t width, int32_t height, const float* src,
                                                               int32_t srcStep, float* dst, int32_t dstStep,
                                                               const float* kernelX, int32_t sizeX,
                                                               const float* kernelY, int32_t sizeY, uint32_t margins);
/* XMImageConvolution_Rgba128F_SSE2 with one kernel both ways. */
VELMORA_API void VELMORA_CALL XMImageConvolve_Rgba128F_SSE2(int32_t width, int32_t height, const float* src,
                                                            int32_t srcStep, float* dst, int32_t dstStep,
                                                            const float* kernel, int32_t size, uint32_t margins);
/* In place, binomial kernels 1 2 1, 1 4 6 4 1 and 1 6 15 20 15 6 1 both ways: clipping within the
   region widened by the packed margins (margins are read, not written). */
VELMORA_API void VELMORA_CALL XMImageGaussian3_Rgba128F_SSE2(int32_t width, int32_t height, float* image,
                                                             int32_t step, uint32_t margins);
VELMORA_API void VELMORA_CALL XMImageGaussian5_Rgba128F_SSE2(int32_t width, int32_t height, float* image,
                                                             int32_t step, uint32_t margins);
VELMORA_API void VELMORA_CALL XMImageGaussian7_Rgba128F_SSE2(int32_t width, int32_t height, float* image,
                                                             int32_t step, uint32_t margins);
/* Gray box mean of radius r along each row, written transposed (dst: width rows of height
   floats). Clipping: ends divide by the pixels inside. The II form averages the squares. The three
   give the same values as their two-pass forms below use. */
VELMORA_API void VELMORA_CALL XMImageBoxBlurAndTranspose_Gray32Float(const float* src, int32_t srcStep, float* dst,
                                                                     int32_t dstStep, const ImageSize* roi,
                                                                     int32_t radius);
VELMORA_API void VELMORA_CALL XMImageBoxBlurAndTransposeII_Gray32Float(const float* src, int32_t srcStep, float* dst,
                                                                       int32_t dstStep, const ImageSize* roi,
                                                                       int32_t radius);
VELMORA_API void VELMORA_CALL XMImageBoxFilterTranspose_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                     int32_t dstStep, const ImageSize* roi,
                                                                     int32_t radius);
/* Clipped (2r+1)-square box mean of a gray plane: pass src -> tmp (transposed, roi->width rows of
   roi->height floats, caller-allocated), then tmp -> dst. MeanII gives the mean of the squares.
   The plain and _SSE2 forms give identical values. */
VELMORA_API void VELMORA_CALL XMImageBoxFilter_Gray32Float(const float* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, float* tmp, int32_t tmpStep,
                                                           const ImageSize* roi, int32_t radius);
VELMORA_API void VELMORA_CALL XMImageBoxFilter_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                            int32_t dstStep, float* tmp, int32_t tmpStep,
                                                            const ImageSize* roi, int32_t radius);
VELMORA_API void VELMORA_CALL XMImageComputeMeanII_Gray32Float(const float* src, int32_t srcStep, float* dst,
                                                               int32_t dstStep, float* tmp, int32_t tmpStep,
                                                               const ImageSize* roi, int32_t radius);
/* Gray twin of XMImageConvolution_Rgba128F_SSE2: flags holds the packed readable margins
   (0: clip at the region). src and dst may be the same plane. */
VELMORA_API void VELMORA_CALL XMImageSepConv_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                          int32_t dstStep, int32_t width, int32_t height,
                                                          const float* kernelX, int32_t sizeX, const float* kernelY,
                                                          int32_t sizeY, uint32_t flags);
/* One pass of an int32 kernel (size weights, centre size/2) along each row of 8-bit BGRA pixels,
   written transposed (dst: width rows of height pixels). Clipping at the row ends; result = weighted
   sum / used weights, rounded half to even, clamped to 0..255 (a zero weight sum gives 0). Exact
   while 255 x sum|w| < 2^24. last != 0 filters all four channels; last = 0 leaves dst's alpha bytes
   as they are. */
VELMORA_API void VELMORA_CALL ImageConvolveTranspose_Bgra32(const uint8_t* src, int32_t srcStep, int32_t width,
                                                            int32_t height, uint8_t* dst, int32_t dstStep,
                                                            const int32_t* kernel, int32_t size, int32_t last);
/* In place: the result of the pass above across (all channels), then back with the caller's last
   (0 keeps the image's own alpha), computed row by row with a few rows of scratch. */
VELMORA_API void VELMORA_CALL ImageConvolve_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi,
                                                   const int32_t* kernel, int32_t size, int32_t last);
/* In place, ImageConvolve_Bgra32 with 1 4 6 4 1 and last = 1. */
VELMORA_API void VELMORA_CALL ImageGaussian5x5_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi);
/* In place, three times: each pixel = truncate(sum / count + 0.5) over the (2r+1)-square window
   clipped to the region (count = pixels inside; single-precision division). */
VELMORA_API void VELMORA_CALL ImageFastGaussianBlur_Gray8(uint8_t* image, int32_t step, const ImageSize* roi,
                                                          int32_t radius);


/* ---- Filter: pyramids and the local Laplacian filter ---------------------- */
/* None checks anything or returns a status; any alignment unless said. A level below a w x h
   level is (w+1)/2 x (h+1)/2. */

/* dst(x, y) = src(2x, 2y), 16-byte pixels copied unchanged, for x < (w+1)/2, y < (h+1)/2 (roi is
   the source size). No filtering. Exactly the source and destination pixels named. */
VELMORA_API void VELMORA_CALL XMImageDown_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                        const ImageSize* roi);
/* The same for gray floats. */
VELMORA_API void VELMORA_CALL XMImageDown_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                       const ImageSize* roi);
/* Builds a 1 4 6 4 1 / 16 kernel and a scratch plane and releases them UNUSED: the result is
   XMImageDown_Rgba128F_SSE2 on the gray buffers, i.e. 16-byte groups taken every 32 bytes.
   OVERRUN: each source row is read up to byte 32 ((w+1)/2 - 1) + 16 and each destination row
   written over 16 ((w+1)/2) bytes (about four times a gray row). margins (packed) is unused. */
VELMORA_API void VELMORA_CALL XMImagePyramidDown_Gauss5x5_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                       int32_t dstStep, const ImageSize* roi,
                                                                       uint32_t margins);
VELMORA_API void VELMORA_CALL ImagePyramidDown_Gauss5x5_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                     int32_t dstStep, const ImageSize* roi,
                                                                     uint32_t margins);
/* Blurs the source (1 4 6 4 1 / 16, clipping within the packed margins, which are read) into a
   scratch plane that is then released UNREAD; the result is XMImageDown_Rgba128F_SSE2 of the
   source: a 2:1 decimation, despite the name. */
VELMORA_API void VELMORA_CALL XMImagePyramidUp_Gauss5x5_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                      int32_t dstStep, const ImageSize* roi,
                                                                      uint32_t margins);
VELMORA_API void VELMORA_CALL ImagePyramidUp_Gauss5x5_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                    int32_t dstStep, const ImageSize* roi,
                                                                    uint32_t margins);
/* A copy of the source blurred with 1 4 6 4 1 (ImageConvolveTranspose_Bgra32 across and back,
   last = 1), resampled to dstSize by ImageResize_Bgra32 (so dst must satisfy its checks, or
   nothing is written). The source is not changed. */
VELMORA_API void VELMORA_CALL ImagePyrDown_Bgra32(const uint8_t* src, int32_t srcStep, const ImageSize* srcSize,
                                                  uint8_t* dst, int32_t dstStep, const ImageSize* dstSize);
/* ImageResize_Bgra32 from src to dst, then ImageGaussian5x5_Bgra32 on dst in place. */
VELMORA_API void VELMORA_CALL ImagePyrUp_Bgra32(const uint8_t* src, int32_t srcStep, const ImageSize* srcSize,
                                                uint8_t* dst, int32_t dstStep, const ImageSize* dstSize);
/* Local Laplacian filter, in place on linear ProPhoto RGBA floats: alpha > 0 raises local
   contrast, < 0 smooths it, edges kept. L = sqrt(0.28804 R + 0.711874 G + 0.000086 B); eight
   remapped versions r_k = L + alpha d 2^(-20 d^2), d = L - k/7; the output pyramid takes at each
   level and pixel the Laplacian coefficients of the versions bracketing the local luminance,
   interpolated (samples: 2..8 read, pass 8); collapsed to L'; R, G, B times (L'/L)^2, then < 0 ->
   0, else min(v, 1) (NaN -> 1); alpha = 1. levels: maximum pyramid levels (0: all). Reduce and
   expand use 1 4 6 4 1 / 16, renormalised at the edges. Exactly the region; single-threaded;
   scratch up to about 60 bytes a pixel, released before return. */
VELMORA_API void VELMORA_CALL LocalLaplacian_Rgba128F(float* image, int32_t step, const ImageSize* roi, float alpha,
                                                      int32_t levels, int32_t samples);

/* ---- Retouch --------------------------------------------------------------- */

/* ---- Retouch: dehaze (dark-channel prior) -------------------------------- */
/* Kernels the host chains: dark channel -> airlight -> rough transmission -> (the host's own
   refinement) -> recovery. Each takes its region as x, y, width, height by value and offsets
   every plane to (x, y) itself (bytes per pixel: 16 float RGBA, 4 float, 3 RGB, 1 gray); reads and
   writes exactly the region; any alignment; always returns StatusOk; height < 1 does nothing.
   Airlight is reduced to one grey value Abar = (A[1] + A[0] + A[2]) x 0.33333334 everywhere but
   in its estimate. */

/* Grey erosion: each pixel = the minimum byte of its (2r+1)-square window clipped to the region
   (never reads outside it). Cost independent of r. */
VELMORA_API StatusCode VELMORA_CALL DarkChannel_8u_C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                                       int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                       int32_t height, int32_t radius);
/* dst (one float) = min(1.0, minimum of R, G and B over the clipped window); alpha ignored. A NaN or
   -0 in R, G or B makes the result follow the scan order exactly (running value kept where strictly
   less than the pixel's). */
VELMORA_API StatusCode VELMORA_CALL DarkChannel_32f_AC4C1R(const float* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                           int32_t height, int32_t radius);
/* Airlight from the brightest 10 % of the dark channel (256-bin histogram; threshold = the bin
   where the count from 255 down reaches ceil(0.1 x width x height)): of those pixels, the one of
   highest 0.299 b0 + 0.587 b1 + 0.114 b2 (first met wins ties) has its three bytes copied to light.
   If no candidate has a luma above 0, light is NOT written: preset it. */
VELMORA_API StatusCode VELMORA_CALL EstimateAtmosphericLight_8u_C3C1R(const uint8_t* src, int32_t srcStep,
                                                                      const uint8_t* dark, int32_t darkStep, int32_t x,
                                                                      int32_t y, int32_t width, int32_t height,
                                                                      uint8_t* light);
/* dst = table[dark]: entry i = trunc(max(1 - i/255 x omega/atmosphericLight, 0) x 255 + 0.5);
   atmosphericLight on the 0..1 scale. ("Rought" is the name.) */
VELMORA_API StatusCode VELMORA_CALL RoughtTransmissionMap_8u_C1R(const uint8_t* dark, int32_t darkStep, uint8_t* dst,
                                                                 int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                 int32_t height, float atmosphericLight, float omega);
/* dst (float) = 1 - dark x 0.95 / Abar (Abar from the three light bytes, 0..255 scale), unclamped.
   The SOURCE IS READ PACKED: width x height bytes from the unmoved dark pointer, row after row;
   darkStep, x and y do not apply to it (only dst is offset and stepped). */
VELMORA_API StatusCode VELMORA_CALL RoughtTransmissionMap_8u32f_C1R(const uint8_t* dark, int32_t darkStep, float* dst,
                                                                    int32_t dstStep, int32_t x, int32_t y,
                                                                    int32_t width, int32_t height,
                                                                    const uint8_t* light);
/* dst = 1 - dark x omega / Abar (light: three floats), unclamped. In rows of 16 pixels or more
   whose destination does not overlap the source, blocks of 16 use the processor's approximate
   reciprocal refined by one Newton step (last bits may differ from the exact path, and between
   processor makes); the rest uses 1/Abar. Both transmission kernels share this rule. */
VELMORA_API StatusCode VELMORA_CALL RoughtTransmissionMap_32f_C1R(const float* dark, int32_t darkStep, float* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height, const float* light, float omega);
/* Recovery: t = max(transmission/255, t0); every lane, ALPHA INCLUDED, = (I - Abar) / t + Abar
   (restore alpha afterwards if needed). Unclamped; t0 = 0 with t = 0 gives inf/NaN. */
VELMORA_API StatusCode VELMORA_CALL Dehaze_32f_AC4R(const float* src, int32_t srcStep, const uint8_t* transmission,
                                                    int32_t transmissionStep, float* dst, int32_t dstStep, int32_t x,
                                                    int32_t y, int32_t width, int32_t height, const float* light,
                                                    float t0);

/* ---- Retouch: gradient masks ---------------------------------------------- */
/* Float masks in 0..1. dst points at the region's first pixel; region = {x, y, width, height}
   gives only the image coordinates (x + col, y + row) at which pixels are evaluated. Overrun: rows
   are written in groups of four, widths round up to a multiple of 4 floats (up to three floats past
   the width written). No checks; any alignment. A, B: two floats each (x, y). A = B gives NaN.
   Parameters clamped to 0.0001..0.9999 where said. invert gives 1 - value. */

/* 0 at A's perpendicular, 1 at B's; midpoint (clamped) is where the ramp crosses 0.5, each side
   linear (exactly 0.5 within 1e-6: the plain ramp). */
VELMORA_API void VELMORA_CALL ImageLinearGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep, const int32_t* region,
                                                                    const float* pointA, const float* pointB,
                                                                    float midpoint, bool invert);
/* 1 at the pivot A + midpoint (B - A), falling linearly to 0 at A and at B; a midpoint within 1e-6
   of 0.5 uses the dual ramp with width 0.0001. */
VELMORA_API void VELMORA_CALL ImageReflectedGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                       const int32_t* region, const float* pointA,
                                                                       const float* pointB, float midpoint, bool invert);
/* A plateau of 1 for a distance from the middle of A and B up to width (clamped) x |AB|/2, falling
   linearly to 0 at A and at B. */
VELMORA_API void VELMORA_CALL ImageDualGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep, const int32_t* region,
                                                                  const float* pointA, const float* pointB, float width,
                                                                  bool invert);
/* Radial mask around centre (x, y) with radii (rx along the angle, ry across it; angle in radians).
   rho = the normalised radius (1 on the shape's edge). feather f (clamped to 0.0001..1) is the
   fraction of the radius over which the mask falls: linear ramp = clamp((1 - rho) / f, 0, 1).
   selector 0: ellipse, linear ramp; 1: ellipse, smoothstep of the ramp; 2: ellipse, Gaussian
   exp(-4.5 (max(rho - (1 - f), 0) / f)^2) (e^-4.5 on the edge, never exactly 0); 3: rectangle of
   half sizes rx, ry with corners rounded by shape (0 square .. 1 ellipse-like), linear ramp on its
   signed distance; 4, 5: 1 minus selector 0, 1 (vignette: 0 inside, 1 outside). Other selectors
   write nothing. shape is used by selector 3 only. 1 at the centre (selectors 0-3), 0 with invert. */
VELMORA_API void VELMORA_CALL ImageRadialGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep, const int32_t* region,
                                                                    const float* centre, const float* radii,
                                                                    float angle, float feather, float shape, bool invert,
                                                                    int32_t selector);


/* ---- Retouch: patch-based inpainting -------------------------------------- */
/* Building blocks for filling a hole from the rest of the picture by patch matching (PatchMatch):
   the host owns the multi-scale loop, the initial field and the vote that turns matches into
   pixels (the velmora tool's `heal` command is such a host). Nothing here checks its arguments or
   returns a status; any alignment. Hole conventions differ by kernel, as stated for each. */

/* One entry of a nearest-neighbour field (NNF), one per pixel of the image being filled: the
   top-left (x, y) of the matched source patch and that match's patch distance. 12 bytes; rows of
   entries have their own step in bytes. */
typedef struct NNFEntry {
    int32_t x;
    int32_t y;
    int32_t distance;
} NNFEntry;

/* One PatchMatch sweep over the width x height field: a forward pass (rows top to bottom, each left
   to right) then a backward pass (bottom to top, right to left). For each entry (c, r) it tries, in
   order: the left (right) neighbour's match moved one column right (left), if that stays inside;
   the upper (lower) neighbour's match moved one row down (up), likewise; then a random search with
   R = width, halving (arithmetic shift) while R > 1: x' = x + rand() % 2R - R, then
   y' = y + rand() % 2R - R around the entry's current match (x first, the same R for both axes),
   clamped to 0..width-1 and 0..height-1. A candidate replaces the entry (x, y, distance) only when
   its distance is STRICTLY smaller.
   Patch distance: always 4 x 4 pixels; per pixel pair and byte d = |a - b|, all four d = 255 where
   either pixel is 0xFFFFFFFF (the hole marker); distance = sum of dB^2 + 6 dG^2 + 3 dR^2 (alpha
   weighs 0), in int32.
   Geometry: the patch of pixel (x, y) starts o = (patchSize - 1) / 2 rows up and o pixels left
   (each image's own step moves the rows back); patch rows are targetStep bytes apart in BOTH
   images when patchSize is 4 (the two images must share their row step), otherwise
   (targetStep / 4 - patchSize) x 4 bytes, measured from the patch row's start (so other patch sizes
   give skewed 4 x 4 patches, deliberately). Candidates are clamped to the field, not to whole patches:
   with patchSize 4 both images are READ from one pixel left and above to two pixels right and
   below the width x height region: give them that border (ImageSetBorder_Bgra32, hole markers in
   the source). The host initialises every entry inside the field with its distance.
   Threads: each pass is an OpenMP loop over rows (static schedule), joined before the next; a row
   reads its neighbour row as it stands, so results vary with the thread count. Random numbers come
   from the calling thread's generator: rand() on Windows, whose C runtime keeps it per thread;
   elsewhere the library's own per-thread generator with the same recurrence and range, starting at
   seed 1 (the process-wide, locked rand() there would serialise the threads). Never seeded here. */
VELMORA_API void VELMORA_CALL ImageMinimize_Bgra32(const uint8_t* target, int32_t targetStep, const uint8_t* source,
                                                   int32_t sourceStep, NNFEntry* nnf, int32_t nnfStep,
                                                   const ImageSize* size, int32_t patchSize);
/* Leaves the field as the host set it: walks width x height positions drawing that thread's random
   number (as ImageMinimize_Bgra32 draws it) twice at each, and writes nothing. Only size is read.
   Returns the rows walked: height, or 0 when height < 1. */
VELMORA_API int32_t VELMORA_CALL ImageNNFRandomize_Bgra32_SSE2(const uint8_t* target, int32_t targetStep,
                                                                const uint8_t* source, int32_t sourceStep,
                                                                NNFEntry* nnf, int32_t nnfStep, int32_t unused7,
                                                                int32_t unused8, const ImageSize* size,
                                                                int32_t unused10);
/* Float RGBA patch distances, returned in a four-float vector register (alpha never counts in the
   first two). Sum of (aR-bR)^2 + (aG-bG)^2 + (aB-bB)^2 over the width x height blocks at a and b
   (one shared step in bytes), divided by 3 x width x height; every lane holds the value. */
VELMORA_API __m128 VELMORA_CALL DistancePatch_Rgba128F_SSE2(const float* a, const float* b, int32_t step,
                                                            int32_t width, int32_t height);
/* The same sum over the square -radius..radius around the centres a and b (rows stride PIXELS
   apart), divided by 3 x radius^2, NOT by the pixel count (2 radius + 1)^2; radius 0 divides by
   zero. Every lane holds the value. */
VELMORA_API __m128 VELMORA_CALL DistancePatch2_Rgba128F_SSE2(const float* a, const float* b, int32_t radius,
                                                             int32_t stride);
/* Per lane, alpha included: the sum of squared differences over the same square / radius^2. */
VELMORA_API __m128 VELMORA_CALL DistancePatch3_Rgba128F_SSE2(const float* a, const float* b, int32_t radius,
                                                             int32_t stride);
/* Hole-aware 2:1 shrink: a source pixel with A != 0 is a hole. Output (i, j) for x = 2j, y = 2i while
   x < width - 1 and y < height - 1: floor(width / 2) x floor(height / 2) pixels. Taps: rows y-2..y+1,
   columns x-2..x+1 (centred half a pixel up and left), weights (1 3 3 1) x (1 3 3 1); taps before
   row or column 0 are skipped, and a tap in or past the LAST row (column) ends the window (that
   row's) scan, so the last row and column are never read. n = taps visited, h = hole taps; if no
   known tap or h > 0.75 n: the marker 0xFF00FF00 (B 0, G 255, R 0, A 255); else B, G, R =
   trunc(sum(w v) x (1 / sum w) + 0.5) over the known taps (float), A = 0. unused6 is ignored. */
VELMORA_API void VELMORA_CALL ImageDownscaleMasked4x4_Bgra32(const uint8_t* src, int32_t srcStep,
                                                             const ImageSize* srcSize, uint8_t* dst, int32_t dstStep,
                                                             int32_t unused6);
/* ImageResize_Bgra32 with the same arguments; returns its status. */
VELMORA_API StatusCode VELMORA_CALL ImageUpscale_Bgra32(const uint8_t* src, int32_t srcStep, const ImageSize* srcSize,
                                                        uint8_t* dst, int32_t dstStep, const ImageSize* dstSize);
/* Frames the width x height interior starting at image with value, border pixels deep: border whole
   rows above and below, each width + 2 border pixels from border pixels left of the interior, and
   border pixels left and right of every interior row. The interior is untouched; the frame must
   exist in the caller's buffer. Four-byte pixels. */
VELMORA_API void VELMORA_CALL ImageSetBorder_Bgra32(uint8_t* image, int32_t step, const ImageSize* size,
                                                    int32_t border, uint32_t value);
/* The SAME four-byte-pixel geometry and fill, with value zero-extended to 32 bits (bytes value, 0,
   0, 0 in each border pixel): not a one-byte-per-pixel fill, deliberately. */
VELMORA_API void VELMORA_CALL ImageSetBorder_Gray8(uint8_t* image, int32_t step, const ImageSize* size,
                                                   int32_t border, uint8_t value);
/* Builds the Bgra32 and float-mask pyramids of a width x height picture (rows of width x 4 bytes
   copied, a null source row clearing its level row; mask bytes != 0 become 1.0, else 0.0; levels
   halve with ImageDownScale_Bgr32 and XMImageDown_Gray32F_SSE2 until both sides are below 2), then
   releases them: NOTHING is written back, deliberately; the filling is the host's. Reads the source
   rows and the width x height mask bytes. unused3, unused6 and unused8 are ignored. */
VELMORA_API void VELMORA_CALL ImageInpaint_Bgra32_SSE2(const uint8_t* src, int32_t srcStep, const void* unused3,
                                                       int32_t maskStep, const uint8_t* mask, int32_t unused6,
                                                       const ImageSize* size, int32_t unused8);


/* ---- Resample and statistics ---------------------------------------------- */

/* Resizes 8-bit four-channel pixels (all four alike) from srcSize to dstSize: per axis, area
   averaging when it shrinks, Keys cubic (a = -0.5, Catmull-Rom) when it grows, identity when equal;
   pixel centres aligned (no shift), edge pixels repeated; rounded half up and clamped. An exact
   2:1 shrink gives (sum of the 2 x 2 block + 2) / 4. Validating: src and dst 16-byte aligned,
   steps multiples of 16, else StatusInvalidParameter (87) and nothing written. Exactly the regions. */
VELMORA_API StatusCode VELMORA_CALL ImageResize_Bgra32(const uint8_t* src, int32_t srcStep, const ImageSize* srcSize,
                                                       uint8_t* dst, int32_t dstStep, const ImageSize* dstSize);
/* Halves a four-byte-pixel image to (w+1)/2 x (h+1)/2: each output = (sum + n/2) / n over the n
   pixels of its 2 x 2 block inside the source, all four bytes alike. No checks; any alignment;
   exactly the regions. */
VELMORA_API void VELMORA_CALL ImageDownScale_Bgr32(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                                   const ImageSize* srcSize);


#ifdef __cplusplus
}
#endif

#endif /* VELMORA_IMAGING_H */
