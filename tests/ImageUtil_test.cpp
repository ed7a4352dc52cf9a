// Deep copies that never share memory with their source.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ImageBufferPool.h"
#include "ImageUtil.h"
#include "ZTImageImpl.h"

using namespace ZTI;

TEST(ImageClone, TheTemporaryIsCopiedThenGivenBackToThePool) {
    // A clone is a copy of an image made by create, which is then dropped: two acquires and
    // one release. With buffers A and B cached (B on top), create takes B, the copy takes A,
    // and B goes back to the pool. 1111 bytes: a size no other test uses.
    ImageBufferPool& pool = ImageBufferPool::getInstance();
    const size_t size = 1111;
    std::vector<unsigned char> pixels(size, 0x3C);
    ZTImage source(Mono8, 101, 11, 0, pixels.data());
    unsigned char* a = pool.acquireBuffer(size);
    unsigned char* b = pool.acquireBuffer(size);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);

    pool.releaseBuffer(a, size);
    pool.releaseBuffer(b, size);
    std::shared_ptr<ZTImage> shared = imageutil::cloneShared(source);
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(shared->getBuffer(), a);
    EXPECT_EQ(0, std::memcmp(shared->getBuffer(), pixels.data(), size));
    EXPECT_EQ(pool.acquireBuffer(size), b) << "the temporary's memory is back in the pool";
    shared.reset();  // gives A back

    pool.releaseBuffer(b, size);  // A below B again
    ZTImage value = imageutil::cloneValue(source);
    EXPECT_EQ(value.getBuffer(), a);
    EXPECT_EQ(0, std::memcmp(value.getBuffer(), pixels.data(), size));
    EXPECT_EQ(pool.acquireBuffer(size), b) << "the temporary's memory is back in the pool";
    pool.releaseBuffer(b, size);
}

TEST(ImageClone, AFailedCreateGivesADefaultImage) {
    // A caller's buffer whose geometry no memory can hold: 2^31 rows 2^30 + 1 bytes apart.
    unsigned char byte = 7;
    ZTImage huge;
    huge.attachUserBuffer(&byte, 1, Mono8, 1, 1u << 31, 1u << 30);
    ASSERT_TRUE(huge.isValid());
    EXPECT_EQ(imageutil::cloneShared(huge), nullptr);
    const ZTImage value = imageutil::cloneValue(huge);
    EXPECT_FALSE(value.isValid());
    EXPECT_EQ(value.getPixelType(), 0u);
    EXPECT_EQ(value.getWidth(), 0u);
    EXPECT_EQ(value.getHeight(), 0u);
    EXPECT_EQ(value.getpaddingX(), 0);
}

TEST(ImageClone, PaddedImagesKeepEveryRowAndThePadding) {
    ZTImage padded = ZTImage::create(Mono16, 5, 3, 6);
    const size_t stride = padded.getStride();  // 16
    ASSERT_EQ(stride, 16u);
    unsigned char* p = padded.getBuffer();
    for (size_t i = 0; i < stride * 3; ++i) p[i] = static_cast<unsigned char>(i * 3 + 1);
    for (auto clone : {*imageutil::cloneShared(padded), imageutil::cloneValue(padded)}) {
        EXPECT_EQ(clone.getpaddingX(), 6);
        EXPECT_EQ(clone.getStride(), stride);
        EXPECT_EQ(0, std::memcmp(clone.getBuffer(), p, stride * 3));
    }
}

TEST(ImageClone, NeverReadsBeyondACallersStatedSize) {
    // A caller's buffer that holds fewer bytes than stride x height: the clone copies what
    // exists and ASan would flag any read past it.
    std::vector<unsigned char> caller(40, 0x5A);
    ZTImage attached;
    attached.attachUserBuffer(caller.data(), caller.size(), Mono8, 10, 4, 4);  // stride 14
    ZTImage clone = imageutil::cloneValue(attached);
    ASSERT_TRUE(clone.isValid());
    EXPECT_EQ(readableBytes(attached), 40u);
    EXPECT_EQ(0, std::memcmp(clone.getBuffer(), caller.data(), caller.size()));
}
