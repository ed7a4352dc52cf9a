// Deep copies of images.
#pragma once

#include <memory>

#include "ZTExport.h"
#include "ZTImage.h"

namespace imageutil {

/// A deep copy of `source` in new pool memory, whatever memory the source uses (a copy of an
/// image viewing a camera frame does not hold the frame). Empty when the source is invalid or
/// memory is missing. Callable from any thread on a source no other thread modifies.
ZTI_API std::shared_ptr<ZTI::ZTImage> cloneShared(const ZTI::ZTImage& source);

/// The same copy by value; a default (invalid) image when the source is invalid or no memory
/// can be had for its format and size.
ZTI_API ZTI::ZTImage cloneValue(const ZTI::ZTImage& source);

}  // namespace imageutil
