#include "ZTGrabResult.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using ZTI::createGrabResult;
using ZTI::ZTGrabResultPtr;

TEST(ZTGrabResult, EmptyHandleHoldsNothing) {
    ZTGrabResultPtr empty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty.UseCount(), 0);
    empty.Release();  // releasing an empty handle is harmless
    EXPECT_FALSE(empty);
}

TEST(ZTGrabResult, FrameDescribesTheBufferWithoutCopying) {
    unsigned char pixels[32] = {};
    ZTGrabResultPtr frame = createGrabResult(0x01080001, 4, 6, 2, pixels, sizeof pixels);
    ASSERT_TRUE(frame);
    const ZTI::ZTGrabResultDataImpl* impl = frame->GetGrabResultDataImpl();
    EXPECT_EQ(impl->GetPixelType(), 0x01080001u);
    EXPECT_EQ(impl->GetWidth(), 4u);
    EXPECT_EQ(impl->GetHeight(), 6u);
    EXPECT_EQ(impl->GetPaddingX(), 2u);
    EXPECT_EQ(impl->GetBuffer(), static_cast<void*>(pixels));
    EXPECT_EQ(frame->GetImageSize(), sizeof pixels);
}

TEST(ZTGrabResult, ReleaseCallbackRunsOnceWhenTheLastHandleDrops) {
    int released = 0;
    unsigned char pixels[4] = {};
    ZTGrabResultPtr first = createGrabResult(0x01080001, 2, 2, 0, pixels, 4, [&] { ++released; });
    ZTGrabResultPtr second = first;
    ZTGrabResultPtr third;
    third = second;
    EXPECT_EQ(first.UseCount(), 3);
    first.Release();
    second = ZTGrabResultPtr();
    EXPECT_EQ(released, 0) << "a handle still holds the frame";
    ZTGrabResultPtr moved = std::move(third);
    EXPECT_EQ(released, 0);
    moved.Release();
    EXPECT_EQ(released, 1);
    moved.Release();
    EXPECT_EQ(released, 1);
}

TEST(ZTGrabResult, HandlesDroppedOnManyThreadsReleaseOnce) {
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> released{0};
        unsigned char pixel = 0;
        ZTGrabResultPtr frame = createGrabResult(0x01080001, 1, 1, 0, &pixel, 1, [&] { ++released; });
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([copy = frame]() mutable {
                for (int i = 0; i < 1000; ++i) {
                    ZTGrabResultPtr again = copy;
                    again.Release();
                }
                copy.Release();
            });
        }
        frame.Release();
        for (auto& t : threads) t.join();
        EXPECT_EQ(released.load(), 1);
    }
}
