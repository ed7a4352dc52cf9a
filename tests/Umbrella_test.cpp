// The umbrella header alone is enough to use the library.
#include "ZTImageLib.h"

#include <gtest/gtest.h>

TEST(Umbrella, OneHeaderGivesTheWholeLibrary) {
    ZTI::ZTImage image = ZTI::ZTImage::create(ZTI::Mono8, 2, 2);
    EXPECT_TRUE(image.isValid());
    EXPECT_EQ(imageutil::cloneValue(image).getByteCount(), 4u);
}
