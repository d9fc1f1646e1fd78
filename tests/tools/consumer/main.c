/* A host program as an integrator writes it: converts one pixel to the working image and back. */
#include <stdio.h>
#include <velmora/imaging.h>

int main(void) {
    _Alignas(16) unsigned char bgra[16] = {10, 20, 30, 255};
    _Alignas(16) float work[16];
    ImageSize roi = {1, 1};
    ImageConvert_Bgra32_Rgba128F(bgra, 16, work, 64, &roi);
    ImageConvert_Rgba128F_Bgra32(work, 64, bgra, 16, &roi);
    printf("%d %d %d %d\n", bgra[0], bgra[1], bgra[2], bgra[3]);
    return !(bgra[0] == 10 && bgra[1] == 20 && bgra[2] == 30 && bgra[3] == 255);
}
