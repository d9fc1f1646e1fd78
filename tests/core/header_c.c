/* Compiled as strict C11 to prove the public header is usable from C. */
#include "velmora/imaging.h"

int velmora_header_c_probe(void) { return (int)sizeof(ImageSize) + (int)StatusOk; }
