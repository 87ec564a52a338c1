#include "Services/Desktop/PermissionService.h"

#include "Core/Log.h"

namespace quillo {
namespace {

bool ask(bool granted, const char* permission) {
    if (!granted)
        appLog(QStringLiteral("🔐 Permission missing: ") + QString::fromLatin1(permission), LogLevel::warn,
               QStringLiteral("PermissionService"));
    return granted;
}

} // namespace

PermissionService::PermissionService(Probe microphone, Probe accessibility)
    : m_microphone(std::move(microphone)), m_accessibility(std::move(accessibility)) {}

Task<bool> PermissionService::requestMicrophone() { co_return ask(m_microphone(), "microphone"); }

Task<bool> PermissionService::requestAccessibility() { co_return ask(m_accessibility(), "accessibility"); }

} // namespace quillo
