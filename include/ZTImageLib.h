// Umbrella header: everything the image library offers.
#pragma once

#include "ImageBufferPool.h"
#include "ImageUtil.h"
#include "PixelFormat.h"
#include "PixelUnpack.h"
#include "ZTGrabResult.h"
#include "ZTImage.h"
#include "ImageConverter.h"
#include "ImageConverterFactory.h"
#include "ZTImageFormatConverter.h"
#include "HistogramEnhancement.h"
#include "ImagePersistence.h"
