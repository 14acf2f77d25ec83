// MOXEL_EXPORT: what the shared library shows of itself; everything else is hidden.
#pragma once

#ifndef MOXEL_EXPORT
#define MOXEL_EXPORT __attribute__((visibility("default")))
#endif
