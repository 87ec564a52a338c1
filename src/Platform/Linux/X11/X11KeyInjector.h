#pragma once

#include "Platform/KeyInjector.h"
#include "Platform/Linux/X11/InjectionGuard.h"

#include <memory>

namespace quillo {

/// Synthetic keys through the XTEST extension, sent from their own thread. Null, with a log line, without an X server
/// or without the extension. `guard` is shared with the key event source.
///
/// The destructor finishes the running operation (a stop request ends typing at the next character) and restores the
/// keyboard mapping.
std::unique_ptr<KeyInjector> createX11KeyInjector(std::shared_ptr<InjectionGuard> guard);

} // namespace quillo
