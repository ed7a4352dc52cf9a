// The pool's reuse rules and its thread safety.
#include "ImageBufferPool.h"
#include "ZTImage.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

using ZTI::ImageBufferPool;

namespace {

// Each test works on sizes no other test uses, since the pool is process-wide.
bool pageAligned(const void* p) {
    return reinterpret_cast<uintptr_t>(p) % static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)) == 0;
}

}  // namespace

TEST(ImageBufferPool, ReusesTheLastReleasedBufferOfASize) {
    ImageBufferPool& pool = ImageBufferPool::getInstance();
    unsigned char* first = pool.acquireBuffer(1000);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(pageAligned(first));
    pool.releaseBuffer(first, 1000);
    EXPECT_EQ(pool.acquireBuffer(1000), first);

    unsigned char* a = pool.acquireBuffer(4096);
    unsigned char* b = pool.acquireBuffer(4096);
    pool.releaseBuffer(a, 4096);
    pool.releaseBuffer(b, 4096);
    EXPECT_EQ(pool.acquireBuffer(4096), b);  // last released, first reused
    EXPECT_EQ(pool.acquireBuffer(4096), a);
    unsigned char* fresh = pool.acquireBuffer(4096);
    EXPECT_NE(fresh, a);
    EXPECT_NE(fresh, b);
    for (unsigned char* p : {first, a, b, fresh}) pool.releaseBuffer(p, 1);  // filed small: harmless
}

TEST(ImageBufferPool, BestFitBySizeClassAndShrinkingFiling) {
    ImageBufferPool& pool = ImageBufferPool::getInstance();
    // Sizes far from every other test's, so only this test's buffers qualify.
    const size_t big = 77777777, small = 77777000;
    unsigned char* large = pool.acquireBuffer(big);
    ASSERT_NE(large, nullptr);
    pool.releaseBuffer(large, big);
    // A smaller request takes the larger cached buffer ...
    EXPECT_EQ(pool.acquireBuffer(small), large);
    // ... which is then filed under the smaller size, so a request of the old size misses it.
    pool.releaseBuffer(large, small);
    unsigned char* other = pool.acquireBuffer(big);
    EXPECT_NE(other, large);
    // A request one byte above a cached size never takes that buffer.
    unsigned char* bigger = pool.acquireBuffer(small + 1);
    EXPECT_NE(bigger, large);
    EXPECT_EQ(pool.acquireBuffer(small), large);
    pool.releaseBuffer(nullptr, small);  // ignored
    pool.releaseBuffer(large, small);
    pool.releaseBuffer(other, big);
    pool.releaseBuffer(bigger, small + 1);
}

TEST(ImageBufferPool, NoBufferIsEverHeldByTwoOwnersAtOnce) {
    // Every thread stamps each buffer it holds with its own id, checks the stamp is still its
    // own before handing it back, and uses a few sizes so buffers move between size classes.
    ImageBufferPool& pool = ImageBufferPool::getInstance();
    constexpr int kThreads = 4, kRounds = 4000;
    std::atomic<int> collisions{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const size_t sizes[] = {5001, 5002, 5003, 9000};
            std::vector<std::pair<unsigned char*, size_t>> held;
            for (int i = 0; i < kRounds; ++i) {
                const size_t size = sizes[(i * 7 + t) % 4];
                unsigned char* p = pool.acquireBuffer(size);
                if (p == nullptr) continue;
                std::memset(p, t + 1, size);
                held.emplace_back(p, size);
                if (held.size() > 3 || i % 3 == 0) {
                    auto [q, qsize] = held.front();
                    held.erase(held.begin());
                    for (size_t k = 0; k < qsize; k += 97)
                        if (q[k] != t + 1) ++collisions;
                    pool.releaseBuffer(q, qsize);
                }
            }
            for (auto [q, qsize] : held) pool.releaseBuffer(q, qsize);
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(collisions.load(), 0);
}

TEST(ImageBufferPool, APoolOfItsOwnLeavesImagesReturningMemoryToTheProcessPool) {
    {
        ImageBufferPool local;
        local.releaseBuffer(local.acquireBuffer(64), 64);
    }  // frees what it cached, and nothing else
    // 527 bytes: a size no other test uses. The image's memory must come back to the process
    // pool, which hands it out again with the image's bytes still in it (freed and allocated
    // anew, it would be another address or have the allocator's bookkeeping written over it).
    unsigned char* buffer = nullptr;
    {
        ZTI::ZTImage image = ZTI::ZTImage::create(ZTI::Mono8, 31, 17, 0);
        ASSERT_TRUE(image.isValid());
        buffer = image.getBuffer();
        std::memset(buffer, 0xA5, 527);
    }
    ImageBufferPool& pool = ImageBufferPool::getInstance();
    unsigned char* again = pool.acquireBuffer(527);
    ASSERT_EQ(again, buffer);
    for (size_t i = 0; i < 527; ++i) ASSERT_EQ(again[i], 0xA5) << "byte " << i;
    pool.releaseBuffer(again, 527);
}
