#pragma once

namespace quillo {

/// How text reaches the application: through the clipboard, or key by key.
enum class InjectionMode { paste, type };

} // namespace quillo
