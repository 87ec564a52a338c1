#include "App/Commands/UnavailableCommands.h"

#include "Core/UserError.h"
#include "Localization/LocalizationManager.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace quillo {

QString UnavailableCommands::status() const {
    const QJsonObject object{{QStringLiteral("status"), QStringLiteral("error")},
                             {QStringLiteral("message"), LocalizationManager::shared().t(m_reason)}};
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void UnavailableCommands::refuse() const { throw UserError(m_reason); }

} // namespace quillo
