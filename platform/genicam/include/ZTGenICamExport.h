// Marks the declarations libztgenicam exports. The library is built with hidden visibility, so
// only what carries this macro is visible to its users.
#pragma once

#define ZTGENICAM_API __attribute__((visibility("default")))
