// Ownership of pixel memory: what construction, copies, reset and attaching do with it.
#include "ZTImage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "ImageBufferPool.h"

using namespace ZTI;

namespace {

void fillPattern(ZTImage& image, unsigned char seed) {
    unsigned char* p = image.getBuffer();
    for (size_t i = 0; i < image.getByteCount(); ++i) p[i] = static_cast<unsigned char>(seed + i * 7);
}

}  // namespace

TEST(ZTImage, ConstructorCopiesTheCallersDataAndNeverAttachesIt) {
    std::vector<unsigned char> data(12);
    std::iota(data.begin(), data.end(), 1);
    ZTImage image(Mono8, 4, 3, 0, data.data());
    ASSERT_TRUE(image.isValid());
    EXPECT_NE(image.getBuffer(), data.data());
    EXPECT_EQ(0, std::memcmp(image.getBuffer(), data.data(), 12));
    data[0] = 99;
    EXPECT_EQ(image.getBuffer()[0], 1);
}

TEST(ZTImage, CopiesOfOwnedImagesAreIndependent) {
    ZTImage original = ZTImage::create(Mono16, 8, 4);
    fillPattern(original, 3);
    ZTImage copy(original);
    ASSERT_TRUE(copy.isValid());
    EXPECT_NE(copy.getBuffer(), original.getBuffer());
    EXPECT_EQ(0, std::memcmp(copy.getBuffer(), original.getBuffer(), original.getByteCount()));
    copy.getBuffer()[0] ^= 0xFF;
    EXPECT_NE(copy.getBuffer()[0], original.getBuffer()[0]);

    ZTImage assigned;
    assigned = original;
    EXPECT_NE(assigned.getBuffer(), original.getBuffer());
    EXPECT_EQ(assigned.getPixelType(), Mono16);
    EXPECT_EQ(0, std::memcmp(assigned.getBuffer(), original.getBuffer(), original.getByteCount()));

    unsigned char* before = original.getBuffer();
    ZTImage& self = original;
    original = self;  // self-assignment changes nothing
    EXPECT_EQ(original.getBuffer(), before);

    // Copying an invalid image gives an invalid image, whatever its format says.
    ZTImage empty;
    ZTImage emptyCopy(empty);
    EXPECT_FALSE(emptyCopy.isValid());
}

TEST(ZTImage, CopyOfACallersBufferOwnsAPoolCopy) {
    std::vector<unsigned char> caller(6 * 2, 5);
    ZTImage attached;
    attached.attachUserBuffer(caller.data(), caller.size(), Mono8, 6, 2, 0);
    EXPECT_EQ(attached.getBuffer(), caller.data());
    EXPECT_EQ(attached.getByteCount(), caller.size());

    ZTImage copy(attached);
    EXPECT_NE(copy.getBuffer(), caller.data());
    caller[0] = 77;  // later changes of the caller's memory do not show in the copy
    EXPECT_EQ(copy.getBuffer()[0], 5);
    EXPECT_EQ(attached.getBuffer()[0], 77);
}

TEST(ZTImage, ResetKeepsPaddingAndReturnsMemory) {
    ZTImage image = ZTImage::create(Mono8, 16, 4, 8);
    EXPECT_EQ(image.getStride(), 24u);
    image.reset(Mono16, 4, 4);
    EXPECT_EQ(image.getpaddingX(), 8);
    EXPECT_EQ(image.getStride(), 16u);
    EXPECT_EQ(image.getByteCount(), 32u);

    // Detaching to a null user buffer hands the owned memory back and leaves the image invalid.
    ZTImage owner = ZTImage::create(Mono8, 123457, 1);
    unsigned char* memory = owner.getBuffer();
    owner.attachUserBuffer(nullptr, 0, Mono8, 0, 0, 0);
    EXPECT_FALSE(owner.isValid());
    ZTImage next = ZTImage::create(Mono8, 123457, 1);
    EXPECT_EQ(next.getBuffer(), memory);  // back in the pool, reused first
}

TEST(ZTImage, PaddedImagesHaveMemoryForEveryFullRow) {
    // The recorded byte count excludes padding, but every row may be written through the
    // stride: the last row's padding must lie inside the allocation (ASan checks this).
    ZTImage padded = ZTImage::create(RGB8, 10, 3, 6);
    EXPECT_EQ(padded.getByteCount(), 90u);
    const size_t stride = padded.getStride();
    unsigned char* p = padded.getBuffer();
    std::memset(p, 0xAB, stride * padded.getHeight());
    ZTImage copy(padded);
    EXPECT_EQ(0, std::memcmp(copy.getBuffer(), p, stride * padded.getHeight()))
        << "a copy of library memory keeps the padding bytes too";
}

TEST(ZTImage, MovedFromImagesAreEmptyButUsable) {
    ZTImage source = ZTImage::create(Mono8, 4, 4);
    unsigned char* memory = source.getBuffer();
    ZTImage target(std::move(source));
    EXPECT_EQ(target.getBuffer(), memory);
    EXPECT_FALSE(source.isValid());  // NOLINT(bugprone-use-after-move): documented state
    EXPECT_EQ(source.getWidth(), 0u);
    source.reset(Mono8, 2, 2);
    EXPECT_TRUE(source.isValid());
}
