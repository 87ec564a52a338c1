#pragma once

#include "Platform/KeyEvents.h"
#include "Platform/Linux/X11/InjectionGuard.h"

#include <memory>

namespace quillo {

/// Key events of an X11 session: raw events of the X Input Extension, and passive grabs for consumed combinations.
/// Null, with a log line, without an X server or if the extension is older than version 2.1.
///
/// Everything runs on the main thread: the handler is called there, so a separate thread would only add a hop. `guard`
/// is shared with the injector.
std::unique_ptr<KeyEventSource> createX11KeyEventSource(std::shared_ptr<InjectionGuard> guard);

} // namespace quillo
