// The Aravis camera behind a GenICamCamera, for the library's own tests (which install a fill
// pattern on a simulated camera). Not installed.
#pragma once

#include <arv.h>

#include "GenICamCamera.h"

namespace ZTI {

struct GenICamCameraAccess {
    static ArvCamera* arvCamera(GenICamCamera& camera);
};

}  // namespace ZTI
