#include "Features/ErrorTexts/ErrorTexts.h"

namespace quillo::errorTexts {

// No switch has a default: a code without a text does not compile.

UserMessage of(TextInjectionError::Code code) {
    using Code = TextInjectionError::Code;
    switch (code) {
    case Code::eventSource:
        return {QStringLiteral("injection.eventSource")};
    case Code::keyboardEvent:
        return {QStringLiteral("injection.keyboardEvent")};
    case Code::secureInput:
        return {QStringLiteral("injection.secureInput")};
    }
    return {};
}

UserMessage of(const AudioServiceError& error) {
    using Code = AudioServiceError::Code;
    switch (error.code()) {
    case Code::alreadyCapturing:
        return {QStringLiteral("microphone.inUse")};
    case Code::permissionDenied:
        return {QStringLiteral("error.micPermissionDenied")};
    case Code::noDevice:
        return {QStringLiteral("microphone.none")};
    case Code::deviceLost:
        return {QStringLiteral("microphone.lost"), {error.detail()}};
    case Code::invalidFormat:
    case Code::engineStartFailed:
    case Code::deviceSetupFailed:
        return {QStringLiteral("microphone.notOpened")};
    }
    return {};
}

UserMessage of(const AuthError& error) {
    using Code = AuthError::Code;
    switch (error.code()) {
    case Code::timeout:
        return {QStringLiteral("auth.timeout")};
    case Code::missingVerifier:
    case Code::noCode:
    case Code::badCallback:
    case Code::noCallback:
        return {QStringLiteral("auth.badCallback")};
    case Code::stateMismatch:
        return {QStringLiteral("auth.stateMismatch")};
    case Code::badAuthorizationURL:
        return {QStringLiteral("auth.badAddress")};
    case Code::browser:
        return {QStringLiteral("auth.browser")};
    case Code::serverRefused:
        return {QStringLiteral("auth.serverRefused"), {error.detail()}};
    case Code::exchangeFailed:
        return {QStringLiteral("auth.exchangeFailed")};
    case Code::linkFailed:
        return {QStringLiteral("auth.linkFailed"), {error.detail()}};
    case Code::alreadyLinked:
        return {QStringLiteral("auth.alreadyLinked")};
    case Code::notAuthenticated:
        return {QStringLiteral("auth.notAuthenticated")};
    case Code::decoding:
        return {QStringLiteral("auth.decoding")};
    case Code::accountUnreadable:
    case Code::refreshFailed:
        return {QStringLiteral("auth.unreachable")};
    case Code::anonymousFailed:
        return {QStringLiteral("auth.anonymousFailed")};
    case Code::accountRequired:
        return {QStringLiteral("auth.accountRequired")};
    case Code::deletionFailed:
        return {QStringLiteral("auth.deletionFailed")};
    case Code::cancelled:
        return {QStringLiteral("auth.cancelled")};
    }
    return {};
}

UserMessage of(StoreError::Cause cause) {
    switch (cause) {
    case StoreError::Cause::unwritable:
        return {QStringLiteral("history.unwritable")};
    case StoreError::Cause::diskFull:
        return {QStringLiteral("history.diskFull")};
    case StoreError::Cause::damaged:
        return {QStringLiteral("history.damaged")};
    case StoreError::Cause::newer:
        return {QStringLiteral("history.newer")};
    case StoreError::Cause::busy:
        return {QStringLiteral("history.busy")};
    case StoreError::Cause::duplicate:
    case StoreError::Cause::other:
        return {QStringLiteral("history.failed")};
    }
    return {};
}

UserMessage of(const ModelContainer::SetAside& setAside) {
    return {setAside.cause == StoreError::Cause::newer ? QStringLiteral("history.newerSetAside")
                                                       : QStringLiteral("history.damagedSetAside"),
            {setAside.keptAs}};
}

UserMessage ofAny(const std::exception& error) {
    if (const auto* keyed = dynamic_cast<const UserError*>(&error))
        return keyed->message();
    if (const auto* store = dynamic_cast<const StoreError*>(&error))
        return of(store->cause());
    if (const auto* auth = dynamic_cast<const AuthError*>(&error))
        return of(*auth);
    if (const auto* audio = dynamic_cast<const AudioServiceError*>(&error))
        return of(*audio);
    if (const auto* injection = dynamic_cast<const TextInjectionError*>(&error))
        return of(injection->code());
    return {QStringLiteral("error.internal")};
}

UserMessage ofSafetyCopy(FileError::Cause cause) {
    switch (cause) {
    case FileError::Cause::diskFull:
        return {QStringLiteral("safetyCopy.diskFull")};
    case FileError::Cause::denied:
        return {QStringLiteral("safetyCopy.denied")};
    case FileError::Cause::removed:
        return {QStringLiteral("safetyCopy.removed")};
    case FileError::Cause::other:
        return {QStringLiteral("safetyCopy.failed")};
    }
    return {};
}

} // namespace quillo::errorTexts
