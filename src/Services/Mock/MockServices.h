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

/// Services that play their part by themselves, without microphone, server, account or keyboard: for working on the
/// interface and for tests of it. Each `clock` outlives its service. Main thread.
namespace mock {

/// A voice that rises and falls, one chunk every 100 ms.
std::unique_ptr<AudioServiceProtocol> createAudioService(Clock& clock);
/// A server that recognises one and the same text in it, word by word.
std::unique_ptr<WebSocketServiceProtocol> createWebSocketService(Clock& clock);
/// Inserts nowhere and says in the log what it would have inserted.
std::unique_ptr<TextInjectionServiceProtocol> createTextInjectionService();
/// Everything is granted.
std::unique_ptr<PermissionServiceProtocol> createPermissionService();
/// Armed, and never pressed.
std::unique_ptr<HotkeyServiceProtocol> createHotkeyService();
/// A session without account, and an account that signs in after a moment.
std::unique_ptr<AuthServiceProtocol> createAuthService(Clock& clock);
/// Always online.
std::unique_ptr<NetworkMonitorServiceProtocol> createNetworkMonitor();
/// Recognises the same text in every file.
std::unique_ptr<TranscriptionFileClientProtocol> createFileClient();

/// What the mock server hears.
QString transcript();

} // namespace mock

} // namespace quillo
