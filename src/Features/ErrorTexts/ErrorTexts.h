#pragma once

#include "Core/PrivateFile.h"
#include "Core/UserError.h"
#include "Data/DataContainer.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Injection/TextInjectionServiceProtocol.h"
#include "Services/Microphone/AudioServiceProtocol.h"

/// What a person reads about an error. The errors themselves carry codes, and English descriptions for the log. Any
/// thread.
namespace quillo::errorTexts {

[[nodiscard]] UserMessage of(TextInjectionError::Code code);
[[nodiscard]] UserMessage of(const AudioServiceError& error);
[[nodiscard]] UserMessage of(const AuthError& error);
[[nodiscard]] UserMessage of(StoreError::Cause cause);
/// Why a fresh history was begun, and where the old one is kept.
[[nodiscard]] UserMessage of(const ModelContainer::SetAside& setAside);
/// Of the error that was thrown, also through a base class. One without words of its own is unexpected, and only the
/// log can say more.
[[nodiscard]] UserMessage ofAny(const std::exception& error);
/// Why the audio of a recording is not kept on disk; the recognition goes on.
[[nodiscard]] UserMessage ofSafetyCopy(FileError::Cause cause);

} // namespace quillo::errorTexts
