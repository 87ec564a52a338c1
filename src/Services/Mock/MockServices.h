#pragma once

#include "Concurrency/Clock.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Desktop/PermissionServiceProtocol.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"
#include "Services/Injection/TextInjectionServiceProtocol.h"
#include "Services/Microphone/AudioServiceProtocol.h"
#include "Services/Network/NetworkMonitorServiceProtocol.h"
#include "Services/Socket/WebSocketServiceProtocol.h"
#include "Services/Upload/TranscriptionFileClientProtocol.h"

#include <memory>

namespace quillo {

/// Services that simulate their part without microphone, server, account or keyboard, for developing and testing the
/// interface. Each `clock` must outlive its service. Main thread.
namespace mock {

/// A voice that rises and falls, one chunk every 100 ms.
std::unique_ptr<AudioServiceProtocol> createAudioService(Clock& clock);
/// A server that always recognises the same text, word by word.
std::unique_ptr<WebSocketServiceProtocol> createWebSocketService(Clock& clock);
/// Inserts nothing; logs what it would have inserted.
std::unique_ptr<TextInjectionServiceProtocol> createTextInjectionService();
/// Grants everything.
std::unique_ptr<PermissionServiceProtocol> createPermissionService();
/// A hotkey that is armed and never pressed.
std::unique_ptr<HotkeyServiceProtocol> createHotkeyService();
/// An anonymous session, and an account that signs in after a moment.
std::unique_ptr<AuthServiceProtocol> createAuthService(Clock& clock);
/// Always online.
std::unique_ptr<NetworkMonitorServiceProtocol> createNetworkMonitor();
/// Recognises the same text in every file.
std::unique_ptr<TranscriptionFileClientProtocol> createFileClient();

/// The text that the mock server recognises.
QString transcript();

} // namespace mock

} // namespace quillo
