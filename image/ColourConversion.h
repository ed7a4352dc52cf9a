// The one-step colour conversion shared by several converter classes.
#pragma once

#include "ZTImage.h"

namespace ZTI {

/// Views both images as matrices and runs cv::cvtColor with the pair's colour code.
void convertWithColourCode(ZTImage& dst, const ZTImage& src);

}  // namespace ZTI
