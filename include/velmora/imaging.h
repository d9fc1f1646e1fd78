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
/* Fills two process-wide float tables, log2(1 + i/255) (256 entries) and 2^((i - 256)/255)
   (512 entries), afresh at every call. No kernel reads them; kept for hosts that call it. */
VELMORA_API void VELMORA_CALL Exp2_Init(void);

/* ---- Pixel: integer and float conversions -------------------------------- */


/* ---- Pixel: linearizing loaders ----------------------------------------- */


/* ---- Pixel: sRGB transfer ------------------------------------------------ */
/* All in place on four-float pixels (Rgb128F or Rgba128F), transforming all four lanes, alpha
   included (the fourth float is treated as a fourth colour value). One pixel is one vector: no
   overrun. Encoding: v < 0.0031308 ? 12.92 v : 1.055 v^(1/2.4) - 0.055; decoding:
   v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055)^2.4. No checks, no result. */
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
