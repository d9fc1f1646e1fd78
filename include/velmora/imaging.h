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


/* ---- Pixel: linearizing loaders ----------------------------------------- */


/* ---- Pixel: sRGB transfer ------------------------------------------------ */


/* ---- Pixel: channel swizzles --------------------------------------------- */


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


/* ---- Adjust: Lab conversions ---------------------------------------------- */


/* ---- Filter ---------------------------------------------------------------- */


/* ---- Retouch --------------------------------------------------------------- */


/* ---- Resample and statistics ---------------------------------------------- */


#ifdef __cplusplus
}
#endif

#endif /* VELMORA_IMAGING_H */
