/* Loads the 32-bit DLL as the editor does and calls one export of each family by its undecorated
   name through a pointer of the header's standard-call type, on small zeroed planes. After each
   call the stack pointer must be where it was before: a callee that pops a different number of
   bytes than the caller pushed (a wrong argument block) leaves it moved, and the program fails.
   Built without optimisation so that nothing but the call moves the stack between the reads. */
#include <windows.h>

#include <stdint.h>
#include <stdio.h>

#include "velmora/imaging.h"

static HMODULE dll;
static int failures;

#define PROBE(name, ...)                                                                          \
    do {                                                                                          \
        __typeof__(name)* fn = (__typeof__(name)*)(void*)GetProcAddress(dll, #name);              \
        uintptr_t before, after;                                                                  \
        if (!fn) {                                                                                \
            printf("%-45s not exported\n", #name);                                                \
            ++failures;                                                                           \
            break;                                                                                \
        }                                                                                         \
        __asm__ volatile("movl %%esp, %0" : "=r"(before)::"memory");                              \
        fn(__VA_ARGS__);                                                                          \
        __asm__ volatile("movl %%esp, %0" : "=r"(after)::"memory");                               \
        if (before != after) {                                                                    \
            printf("%-45s stack moved by %d bytes\n", #name, (int)(after - before));              \
            ++failures;                                                                           \
        } else {                                                                                  \
            printf("%-45s balanced\n", #name);                                                    \
        }                                                                                         \
    } while (0)

/* Zeroed planes far larger than any 8 x 8 region below. */
static __attribute__((aligned(64))) uint8_t plane_a[1 << 16], plane_b[1 << 16];
static __attribute__((aligned(64))) float table[4096];

int main(void) {
    dll = LoadLibraryA("Velmora.Imaging.SSE.dll");
    if (!dll) {
        printf("Velmora.Imaging.SSE.dll: cannot load (error %lu)\n", GetLastError());
        return 1;
    }
    float* fa = (float*)plane_a;
    float* fb = (float*)plane_b;
    const ImageSize roi = {8, 8}, half = {4, 4};
    const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const int32_t order[4] = {2, 1, 0, 3};
    const int32_t region[4] = {0, 0, 8, 8};
    const float centre[2] = {4, 4}, radii[2] = {3, 2};
    const DevelopParameter on = {0.25f, NULL}, off = {0.0f, NULL};

    PROBE(VerifySSE2Support);
    PROBE(ImageConvert_Bgr24_Bgr32_SSE2, plane_a, 64, plane_b, 64, &roi);
    PROBE(ImageToLinearRGB_Bgra32_Rgba128F_SSE2_X4, plane_a, 64, plane_b, 256, &roi, table, 256, identity);
    PROBE(SSE_Linearize_Rgba64_VecX2, (uint16_t*)plane_a, 128, 8, 8, NULL, identity);
    PROBE(XMImageRGBToSRGB_Rgb128F_SSE2, fa, 256, &roi);
    PROBE(Swizzle_8u_C4R, plane_a, 64, plane_b, 64, 0, 0, 8, 8, order);
    PROBE(ImageAdjust_RgbL128F_ProPhotoRGB_SSE2, fa, 256, &roi, &on, &off, &on, &off, &on, &off, &on, 0, 0, 0, 0.0f, 0, 0, 0);
    PROBE(ImageAdjustExposure_Rgba128F_SSE2, fa, 256, fb, 256, &roi, 0.5f);
    PROBE(Curve_32f_C1R, fa, 64, fb, 64, 0, 0, 8, 8, table, 255.0f);
    PROBE(XMImageConvertToLab_ProPhotoRgb128F_SSE2, fa, 256, &roi);
    PROBE(XMImageSRGBToLAB_Rgb128F_SSE2, fa, 256, &roi, NULL, NULL);
    PROBE(ColorTwist_32f_C4R, fa, 256, fb, 256, 0, 0, 8, 8, table);
    PROBE(RGBToCMYK_32f_AC4C4R, fa, 256, fb, 256, 0, 0, 8, 8, 0.5f);
    PROBE(BoxBlur_Rgba128F_SSE2, fa, 256, fb, 256, &roi, 2);
    PROBE(LocalLaplacian_Rgba128F, fa, 256, &roi, 0.5f, 0, 8);
    PROBE(ImageResize_Bgra32, plane_a, 64, &roi, plane_b, 32, &half);
    PROBE(DarkChannel_8u_C1R, plane_a, 64, plane_b, 64, 0, 0, 8, 8, 2);
    PROBE(ImageRadialGradient_Gray32F_SSE2_X4Y1, fa, 64, region, centre, radii, 0.3f, 0.5f, 0.0f, true, 1);
    PROBE(ImageMinimize_Bgra32, plane_a + 1024, 64, plane_a + 1024, 64, (NNFEntry*)plane_b, 96, &half, 4);
    PROBE(ImageNNFRandomize_Bgra32_SSE2, plane_a, 64, plane_a, 64, (NNFEntry*)plane_b, 96, 4, 0, &half, 0);
    PROBE(DistancePatch2_Rgba128F_SSE2, fa + 1024, fb + 1024, 1, 16);
    PROBE(ImageSetBorder_Gray8, plane_b + 1024, 64, &half, 2, 7);
    PROBE(ImageInpaint_Bgra32_SSE2, plane_a, 64, NULL, 8, plane_b, 0, &roi, 0);

    FreeLibrary(dll);
    printf("%s\n", failures ? "FAILED" : "all calls balanced");
    return failures ? 1 : 0;
}
