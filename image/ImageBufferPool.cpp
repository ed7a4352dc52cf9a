#include "ImageBufferPool.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "PoolRelease.h"

namespace ZTI {
namespace {
// Set when the process-wide pool has been destroyed at exit. Constant-initialised and
// trivially destructible, so it stays readable by destructors that run after the pool's.
std::atomic<bool> poolDestroyed{false};

// The process-wide pool. Only its end changes how images give memory back: a pool that a
// program (or a test) builds for itself may come and go without touching the images.
struct ProcessPool {
    ImageBufferPool pool;
    ~ProcessPool() { poolDestroyed.store(true, std::memory_order_release); }
};
}  // namespace

void releasePixelMemory(unsigned char* buffer, size_t size) {
    if (buffer == nullptr) return;
    if (poolDestroyed.load(std::memory_order_acquire)) {
        std::free(buffer);
        return;
    }
    ImageBufferPool::getInstance().releaseBuffer(buffer, size);
}

unsigned char* acquirePixelMemory(size_t size) {
    return ImageBufferPool::getInstance().acquireBuffer(size);
}

ImageBufferPool& ImageBufferPool::getInstance() {
    static ProcessPool instance;
    return instance.pool;
}

ImageBufferPool::ImageBufferPool() = default;

ImageBufferPool::~ImageBufferPool() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : freeBuffers_)
        for (unsigned char* buffer : entry.second) std::free(buffer);
    freeBuffers_.clear();
}

unsigned char* ImageBufferPool::acquireBuffer(size_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    // Best fit by size class: the first non-empty list at or above the request. Empty lists
    // stay in the map (keys are never removed) and are skipped.
    for (auto it = freeBuffers_.lower_bound(size); it != freeBuffers_.end(); ++it) {
        if (!it->second.empty()) {
            unsigned char* buffer = it->second.back();
            it->second.pop_back();
            return buffer;
        }
    }
    static const size_t pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* fresh = nullptr;
    if (posix_memalign(&fresh, pageSize, size) != 0) return nullptr;
    return static_cast<unsigned char*>(fresh);
}

void ImageBufferPool::releaseBuffer(unsigned char* buffer, size_t size) {
    if (buffer == nullptr) return;
    std::lock_guard<std::mutex> lock(mutex_);
    // Filing the buffer may need memory for the list itself. Releasing runs in destructors and
    // must not fail: without that memory the buffer goes back to the system instead.
    try {
        freeBuffers_[size].push_back(buffer);
    } catch (const std::bad_alloc&) {
        std::free(buffer);
    }
}

}  // namespace ZTI
