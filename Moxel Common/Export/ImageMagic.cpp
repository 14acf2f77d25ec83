// The first bytes of the image formats, exported as arrays that stand in memory one after the other.
//
// Nothing in the language orders separate objects. Compilers lay out the definitions of a file in their order
// unless something makes them do otherwise, and linkers keep that order. So nothing in this file refers to
// the arrays, which could move one ahead; MOXEL_IN_ORDER tells the compiler that would reorder them not to;
// alignas(1) leaves no gaps; the build leaves out the sanitizers' guard bytes. The header makes programs
// refer to the arrays where they are, as a copy that the linker made for a program would stand elsewhere; it
// cannot help programs that clang builds without position-independent code.
#include <Moxel/MxlImage.h>

#if __has_attribute(no_reorder)
#define MOXEL_IN_ORDER __attribute__((no_reorder))
#else
#define MOXEL_IN_ORDER
#endif

MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_UNSUPPORTED[1] = {0x00};
MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_BMP[2] = {'B', 'M'};
MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_TIFl[4] = {'I', 'I', 0x2A, 0x00};
MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_TIFb[4] = {'M', 'M', 0x00, 0x2A};
MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_PNG[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_JPG[3] = {0xFF, 0xD8, 0xFF};
MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_PDF[5] = {'%', 'P', 'D', 'F', '-'};
MOXEL_IN_ORDER alignas(1) const uint8_t MxlImageMagic_SVG[5] = {'<', '?', 'x', 'm', 'l'};
