#pragma once

// The generated header has a structure member named `explicit`.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wkeyword-macro"
#define explicit explicitComponents
#include <xcb/xkb.h>
#undef explicit
#pragma clang diagnostic pop
