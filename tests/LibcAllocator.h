// The C library's own allocator entry points, for test programs that define malloc, free and
// the rest themselves (to count or to fail allocations) and hand over to the C library.
#pragma once

#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* pointer);
}
