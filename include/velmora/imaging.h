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
 *    of 16 bytes, rounded up to the block, always have room.
 *  - Float working data is nominally [0, 1]. Float-to-integer conversions clamp
 *    to [0, 1] (NaN becomes 0), scale by 255 or 65535 and round half to even;
 *    integer-to-float multiplies by the float nearest 1/255 or 1/65535.
 */
#ifndef VELMORA_IMAGING_H
#define VELMORA_IMAGING_H

#include <stdbool.h>
#include <stdint.h>

#if defined(_WIN32) && !defined(_WIN64)
#define VELMORA_CALL __stdcall
#else
#define VELMORA_CALL
#endif

#if defined(_WIN32)
#if defined(VELMORA_BUILDING_LIBRARY)
#define VELMORA_API __declspec(dllexport)
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
   |step| bytes of row 0 into every further row (overrun: whole rows, padding included).
   Returns the rows filled (height), or 1 when height < 2. No checks. */
VELMORA_API int32_t VELMORA_CALL ImageClear_Gray32F_SSE2_V2(float* data, int32_t step, const ImageSize* roi,
                                                            float value);

/* ---- Pixel: integer and float conversions -------------------------------- */
/* Integer codes map linearly onto [0, 1] (times the float nearest 1/255 or 1/65535) and back
   (clamp to [0, 1] with NaN to 0, times 255 or 65535, round half to even). No source is changed. */

/* Bgr24 -> Bgr32: copies B, G, R and writes 255 as the fourth byte. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Bgr24_Bgr32_SSE2(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                                                  int32_t dstStep, const ImageSize* roi);
/* Bgra32 -> Prgba128F: R, G, B times A (all scaled by 1/255), A kept. Overrun: odd widths one pixel. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Bgra32_Prgba128F(const uint8_t* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, const ImageSize* roi);
/* Bgra32 -> Rgba128F, all four scaled by 1/255. Overrun: odd widths one pixel. */
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
/* Rgba128F -> Bgra32. Any alignment. Overrun: widths round up to a multiple of 4 pixels. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba128F_Bgra32(const float* src, int32_t srcStep, uint8_t* dst,
                                                                 int32_t dstStep, const ImageSize* roi);
/* Rgba128F -> Rgba32. Overrun: widths round up to a multiple of 4 pixels. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba128F_Rgba32(const float* src, int32_t srcStep, uint8_t* dst,
                                                                 int32_t dstStep, const ImageSize* roi);
/* Rgba128F -> Rgba64. Overrun: odd widths one pixel. */
VELMORA_API void VELMORA_CALL ImageConvert_Rgba128F_Rgba64(const float* src, int32_t srcStep, uint16_t* dst,
                                                           int32_t dstStep, const ImageSize* roi);
/* Rgba32 -> Rgba128F, all four scaled by 1/255. Overrun: odd widths one pixel. */
VELMORA_API void VELMORA_CALL ImageConvert_Rgba32_Rgba128F(const uint8_t* src, int32_t srcStep, float* dst,
                                                           int32_t dstStep, const ImageSize* roi);
/* Rgba64 -> Rgba128F, all four scaled by 1/65535. Any alignment. Exactly the region. */
VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba64_Rgba128F(const uint16_t* src, int32_t srcStep, float* dst,
                                                                 int32_t dstStep, const ImageSize* roi);


/* ---- Pixel: linearizing loaders ----------------------------------------- */

/* Shared by the ImageToLinearRGB_* loaders (always return StatusOk, check nothing): each colour
   code c goes through table (n floats) at position p = c x (n - 1.0001) / 255 (8-bit codes) or
   / 65535 (16-bit codes), single precision, interpolated linearly between T[floor p] and the next
   entry; where single precision rounds the top code's p up to n - 1 (most n >= 1022 for 8-bit,
   n >= 2050 for 16-bit codes), p is capped just below n - 1, so the table is never read past
   T[n-1]. (r, g, b) then times matrix as a row vector: R' = m0 r + m3 g + m6 b, G' = m1 r + m4 g
   + m7 b, B' = m2 r + m5 g + m8 b. Float destinations are not clamped; Rgba64 destinations clamp
   to [0, 1], scale by 65535 and round half to even. Overrun: source and destination rows are
   read and written up to the next multiple of the _X2/_X4/_X16 block. n < 2: the region (exactly
   width pixels) is zero-filled and neither source, table nor matrix is read. */
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
   32767 stores 32767, below -32768 stores 0x8000); alpha keeps its 16 bits. Even widths 2 pixels a step, odd widths
   1; no overrun. Returns StatusOk. */
VELMORA_API StatusCode VELMORA_CALL SSE_Linearize_Rgba64_VecX2(uint16_t* image, int32_t step, int32_t width,
                                                               int32_t height, const uint16_t* table16,
                                                               const float* matrix);


/* ---- Pixel: sRGB transfer ------------------------------------------------ */


/* ---- Pixel: channel swizzles --------------------------------------------- */


/* ---- Adjust: develop pass ------------------------------------------------ */


/* ---- Adjust: exposure, brightness, saturation, levels --------------------- */


/* ---- Adjust: curves ------------------------------------------------------- */


/* ---- Adjust: Lab conversions ---------------------------------------------- */


/* ---- Filter ---------------------------------------------------------------- */


/* ---- Retouch --------------------------------------------------------------- */


/* ---- Resample and statistics ---------------------------------------------- */


#ifdef __cplusplus
}
#endif

#endif /* VELMORA_IMAGING_H */
