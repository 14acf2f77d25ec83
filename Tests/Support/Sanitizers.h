// Whether the tests run under a sanitizer, which has an allocator of its own.
#pragma once

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define MOXEL_UNDER_SANITIZERS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define MOXEL_UNDER_SANITIZERS 1
#endif
#endif
#ifndef MOXEL_UNDER_SANITIZERS
#define MOXEL_UNDER_SANITIZERS 0
#endif
