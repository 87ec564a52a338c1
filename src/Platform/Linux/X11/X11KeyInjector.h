#pragma once

#include "Platform/KeyInjector.h"
#include "Platform/Linux/X11/InjectionGuard.h"

#include <memory>

namespace quillo {

/// Synthetic keys through the XTEST extension, sent from a thread of its own. Nothing, with a log line, without an X
/// server or without the extension. `guard` is shared with the key event source.
///
/// The destructor finishes what is under way (a stop request ends typing at the next character) and leaves the keyboard
/// mapping as it was found.
std::unique_ptr<KeyInjector> createX11KeyInjector(std::shared_ptr<InjectionGuard> guard);

} // namespace quillo
