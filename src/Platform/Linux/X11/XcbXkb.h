#pragma once

// The generated header names a structure member `explicit`.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wkeyword-macro"
#define explicit explicitComponents
#include <xcb/xkb.h>
#undef explicit
#pragma clang diagnostic pop
