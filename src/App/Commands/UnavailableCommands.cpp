#include "App/Commands/UnavailableCommands.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <stdexcept>

namespace quillo {

QString UnavailableCommands::status() const {
    const QJsonObject object{{QStringLiteral("status"), QStringLiteral("error")},
                             {QStringLiteral("message"), m_reason}};
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void UnavailableCommands::refuse() const { throw std::runtime_error(m_reason.toStdString()); }

} // namespace quillo
