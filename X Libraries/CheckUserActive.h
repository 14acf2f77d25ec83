// Who owns the current login session, and whether it is the one on the console.
#pragma once

#include <Moxel/MoxelClient.h>
