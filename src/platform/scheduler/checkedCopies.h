// Gives the functions of the C library that copy and compare memory other names, so that a build
// with ZV_RACES can check what they read and write. The build includes it before all else.
#pragma once

#ifdef ZV_RACES

#include <stddef.h>

extern "C" {
void *memcpy(void *, void const *, size_t) noexcept __asm__("zvCheckedMemcpy");
void *memmove(void *, void const *, size_t) noexcept __asm__("zvCheckedMemmove");
void *memset(void *, int, size_t) noexcept __asm__("zvCheckedMemset");
int memcmp(void const *, void const *, size_t) noexcept __asm__("zvCheckedMemcmp");
}

#endif
