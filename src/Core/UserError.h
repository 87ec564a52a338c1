#pragma once

#include "Core/UserMessage.h"

#include <stdexcept>

namespace quillo {

/// An error whose words a person reads, in the interface language. `what()` is the key and the arguments, for the log.
class UserError : public std::runtime_error {
public:
    explicit UserError(UserMessage message)
        : std::runtime_error((QStringList{message.key} + message.arguments).join(QStringLiteral(" | ")).toStdString()),
          m_message(std::move(message)) {}
    [[nodiscard]] const UserMessage& message() const { return m_message; }

private:
    UserMessage m_message;
};

} // namespace quillo
