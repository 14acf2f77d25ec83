// The first bytes of the image formats, exported as arrays that stand in memory one after the other.
//
// Nothing in the language orders separate objects. Compilers lay out the definitions of a file in their order
// when nothing makes them do otherwise: there are no uses of the arrays in this file that could move one
// ahead, alignas(1) leaves no gaps, and the build switches off what would (see CMakeLists.txt: reordering,
// and the sanitizers' guard bytes). Linkers keep that order. The headers make programs refer to these objects
// where they are, since a copy that the linker made for a program would stand somewhere else.
#include <Moxel/MxlImage.h>

alignas(1) const uint8_t MxlImageMagic_UNSUPPORTED[1] = {0x00};
alignas(1) const uint8_t MxlImageMagic_BMP[2] = {'B', 'M'};
alignas(1) const uint8_t MxlImageMagic_TIFl[4] = {'I', 'I', 0x2A, 0x00};
alignas(1) const uint8_t MxlImageMagic_TIFb[4] = {'M', 'M', 0x00, 0x2A};
alignas(1) const uint8_t MxlImageMagic_PNG[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
alignas(1) const uint8_t MxlImageMagic_JPG[3] = {0xFF, 0xD8, 0xFF};
alignas(1) const uint8_t MxlImageMagic_PDF[5] = {'%', 'P', 'D', 'F', '-'};
alignas(1) const uint8_t MxlImageMagic_SVG[5] = {'<', '?', 'x', 'm', 'l'};
