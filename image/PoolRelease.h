// Handing owned pixel memory back to the pool, also after the pool is gone.
#pragma once

#include <cstddef>

namespace ZTI {

/// Returns `buffer` to the pool under `size`. Images that outlive the pool (static images
/// destroyed after it at exit) free their memory directly instead.
void releasePixelMemory(unsigned char* buffer, size_t size);
/// Pool memory of at least `size` bytes, or null.
unsigned char* acquirePixelMemory(size_t size);

}  // namespace ZTI
