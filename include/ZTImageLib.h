// Umbrella header: everything the image library offers, and the camera frames it reads.
#pragma once

#include "HistogramEnhancement.h"
#include "ImageBufferPool.h"
#include "ImageConverter.h"
#include "ImageConverterFactory.h"
#include "ImagePersistence.h"
#include "ImageUtil.h"
#include "PixelFormat.h"
#include "PixelUnpack.h"
#include "PolarizationProducts.h"
#include "VirtualCamera.h"
#include "ZTGrabResult.h"
#include "ZTImage.h"
#include "ZTImageFormatConverter.h"
