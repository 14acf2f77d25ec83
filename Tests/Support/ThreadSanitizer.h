// Whether the tests run under ThreadSanitizer, which has an allocator and a thread of its own.
#pragma once

#if defined(__SANITIZE_THREAD__)
#define MOXEL_UNDER_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define MOXEL_UNDER_THREAD_SANITIZER 1
#endif
#endif
#ifndef MOXEL_UNDER_THREAD_SANITIZER
#define MOXEL_UNDER_THREAD_SANITIZER 0
#endif
