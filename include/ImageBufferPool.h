// Process-wide pool of page-aligned pixel buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "ZTExport.h"

namespace ZTI {

/// Pool of page-aligned pixel buffers shared by every image in the process. Buffers handed
/// back are kept, filed under the size given at release, and reused: an acquire takes the
/// smallest cached size that is not smaller than the request and, within it, the buffer
/// released last. Memory is never returned to the system while the process runs; everything
/// cached is freed at exit. All operations are thread-safe (one mutex).
class ZTI_API ImageBufferPool {
public:
    /// The single pool, created on first use and destroyed at process exit.
    static ImageBufferPool& getInstance();

    /// A buffer of at least `size` bytes with undefined contents, or null when a fresh
    /// allocation fails. Aligned to the system page size.
    unsigned char* acquireBuffer(size_t size);

    /// Hands `buffer` back, filed under `size` (which must not exceed what it was acquired
    /// for). A null buffer is ignored.
    void releaseBuffer(unsigned char* buffer, size_t size);

    ImageBufferPool(const ImageBufferPool&) = delete;
    ImageBufferPool& operator=(const ImageBufferPool&) = delete;

    /// An empty pool of the caller's own, apart from the process-wide one.
    ImageBufferPool();
    /// Frees every buffer this pool holds. Images keep returning their memory to the
    /// process-wide pool; only its end, at process exit, makes them free it directly.
    ~ImageBufferPool();

private:
    std::map<uint64_t, std::vector<unsigned char*>> freeBuffers_;
    std::mutex mutex_;
};

}  // namespace ZTI
