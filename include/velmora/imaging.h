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


/* ---- Pixel: sRGB transfer ------------------------------------------------ */


/* ---- Pixel: channel swizzles --------------------------------------------- */
/* Destination channel c of each pixel takes source channel order[c]; the region is the width x height
   pixels at (x, y) of both planes. Entries must be 0..channels-1 of the source: other entries are not
   guarded and give unspecified channels (never reads outside the pixel). C3C4: entries of 3 or more write
   `fill` (8u and 16u use its low 8 or 16 bits). In place (IR): each pixel is read whole before it is
   written, so repeated entries act as if from a copy. No overrun; nothing is checked; returns StatusOk,
   and the order is not read when width or height is below 1. */
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
   itself is on). All seven records must be given; the six reserved words are ignored. Whites at or
   past 1 never yield NaN: the tone weights' power bases are clamped at 0. Overrun: each row runs
   in groups of four pixels, so up to 3 pixels past the width are read and rewritten (maps are
   read only inside the region). Always returns StatusOk. */
VELMORA_API StatusCode VELMORA_CALL ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(
    float* image, int32_t step, const ImageSize* roi, const DevelopParameter* exposure,
    const DevelopParameter* brightness, const DevelopParameter* shadows, const DevelopParameter* highlights,
    const DevelopParameter* contrast, const DevelopParameter* clarity, const DevelopParameter* saturation,
    int32_t reserved0, int32_t reserved1, int32_t reserved2, float blackLevel, int32_t reserved3,
    int32_t reserved4, int32_t reserved5);


/* ---- Adjust: exposure, brightness, saturation, levels --------------------- */


/* ---- Adjust: curves ------------------------------------------------------- */
/* Each sample of the width x height region at (x, y) (x in pixels) maps through a float table T with
   linear interpolation: position p, k = trunc(p), T[k] + (T[k+1] - T[k]) * (p - k). Rows top to bottom;
   nothing is checked; no overrun; a height below 1 returns at once. All return StatusOk. IR forms pass
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


/* ---- Filter ---------------------------------------------------------------- */


/* ---- Retouch --------------------------------------------------------------- */


/* ---- Resample and statistics ---------------------------------------------- */


#ifdef __cplusplus
}
#endif

#endif /* VELMORA_IMAGING_H */
