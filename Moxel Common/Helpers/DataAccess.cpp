// The bytes of data objects, for applications in C.
#include "Values/Data.h"
#include <Moxel/MoxelClient.h>

const uint8_t *MoxelDataGetBytePtr(MoxelDataRef data) { return data ? data->bytes().data() : nullptr; }

size_t MoxelDataGetLength(MoxelDataRef data) { return data ? data->size() : 0; }
