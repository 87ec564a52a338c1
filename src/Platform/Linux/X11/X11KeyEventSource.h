#pragma once

#include "Platform/KeyEvents.h"
#include "Platform/Linux/X11/InjectionGuard.h"

#include <memory>

namespace quillo {

/// Key events of an X11 session: raw events of the X Input Extension, and passive grabs for what is consumed. Nothing,
/// with a log line, without an X server or with one older than version 2.1 of the extension.
///
/// Everything runs on the main thread: the handler is to be called there, so that a thread in between would only add
/// a hop. `guard` is shared with the injector.
std::unique_ptr<KeyEventSource> createX11KeyEventSource(std::shared_ptr<InjectionGuard> guard);

} // namespace quillo
