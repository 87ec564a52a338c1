#include "Services/Injection/TextInjectionServiceProtocol.h"

namespace quillo {
namespace {

const char* describe(TextInjectionError::Code code) {
    switch (code) {
    case TextInjectionError::Code::eventSource:
        return "Cannot insert text: failed to create system event source.";
    case TextInjectionError::Code::keyboardEvent:
        return "Cannot insert text: failed to create keyboard event.";
    case TextInjectionError::Code::secureInput:
        break;
    }
    return "Cannot insert text: Secure Input is enabled (e.g., focus is in a password field).";
}

} // namespace

TextInjectionError::TextInjectionError(Code code) : std::runtime_error(describe(code)), m_code(code) {}

} // namespace quillo
