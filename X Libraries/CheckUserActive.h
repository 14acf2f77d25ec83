// Who owns the current login session, and whether it is the one on the console; text for programs in C.
#pragma once

#include <Moxel/MoxelClient.h>
