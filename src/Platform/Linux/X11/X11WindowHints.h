#pragma once

#include "Platform/WindowHints.h"

#include <memory>

namespace quillo {

/// Over the X connection of Qt's own windows. Null where Qt shows its windows by other means. Needs a QGuiApplication,
/// which must outlive the hints.
std::unique_ptr<WindowHints> createX11WindowHints();

} // namespace quillo
