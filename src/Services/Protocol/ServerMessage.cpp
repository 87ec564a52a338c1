#include "Services/Protocol/ServerMessage.h"

namespace quillo {

ServerMessage::ServerMessage(const ServerMessage&) = default;
ServerMessage::ServerMessage(ServerMessage&&) noexcept = default;
ServerMessage& ServerMessage::operator=(const ServerMessage&) = default;
ServerMessage& ServerMessage::operator=(ServerMessage&&) noexcept = default;
ServerMessage::~ServerMessage() = default;

} // namespace quillo
