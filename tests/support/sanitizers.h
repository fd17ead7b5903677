// SPDX-License-Identifier: MIT
#pragma once
// VK410_SANITIZED: 1 where addresses, threads or memory are checked, which brings an allocator of its own.
// gcc and clang tell of it in different ways.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VK410_SANITIZED 1
#elif defined(__has_feature)
#define VK410_SANITIZED                                                                                      \
    (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer))
#else
#define VK410_SANITIZED 0
#endif
