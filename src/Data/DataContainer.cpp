#include "Data/DataContainer.h"

#include "Core/Log.h"
#include "Data/Repository/StoreFile.h"
#include "Data/Repository/StoreSchema.h"
#include "Data/Storage/Database.h"

#include <QFileInfo>
#include <QStandardPaths>

namespace quillo {

namespace {

QString dataFolder() { return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation); }

} // namespace

const QString DataContainer::schemaVersion = QStringLiteral("1.0.0");
const QStringList DataContainer::schema{QStringLiteral("TranscriptionRecord"), QStringLiteral("AppSettings"),
                                        QStringLiteral("Tag")};

ModelContainer::ModelContainer(std::unique_ptr<ModelContext> context, QString path, std::optional<SetAside> setAside)
    : m_context(std::move(context)), m_path(std::move(path)), m_setAside(std::move(setAside)) {}

QString DataContainer::storeDirectory() { return dataFolder() + QStringLiteral("/Quillo"); }

QString DataContainer::storeURL() { return storeDirectory() + QStringLiteral("/quillo.store"); }

QString DataContainer::legacyStoreURL() { return dataFolder() + QStringLiteral("/default.store"); }

std::unique_ptr<ModelContainer> DataContainer::create() {
    storeFile::makeFolder(storeDirectory());
    const auto path = storeURL();
    storeFile::migrateLegacy(legacyStoreURL(), path);
    auto opened = storeFile::open(path);
    std::optional<ModelContainer::SetAside> setAside;
    if (!opened.setAsideAs.isEmpty())
        setAside = {opened.setAsideAs, opened.setAsideCause};
    appLog(QStringLiteral("✅ DataContainer: ModelContainer created at %1").arg(path), LogLevel::info,
           QStringLiteral("DataContainer"));
    return std::make_unique<ModelContainer>(std::make_unique<ModelContext>(std::move(opened.database)), path,
                                            std::move(setAside));
}

std::unique_ptr<ModelContainer> DataContainer::createInMemory() {
    auto database = std::make_unique<Database>(QString());
    storeSchema::prepare(*database);
    return std::make_unique<ModelContainer>(std::make_unique<ModelContext>(std::move(database)), QString(),
                                            std::nullopt);
}

std::unique_ptr<ModelContainer> DataContainer::openReadOnly() {
    const auto path = storeURL();
    if (!QFileInfo::exists(path))
        throw StoreError(StoreError::Cause::other,
                         QStringLiteral("There is no history yet (%1). Dictate something first.").arg(path));
    auto database = std::make_unique<Database>(path, Database::Access::readOnly);
    storeSchema::requirePrepared(*database);
    return std::make_unique<ModelContainer>(std::make_unique<ModelContext>(std::move(database)), path, std::nullopt);
}

} // namespace quillo
