#pragma once

#include "Data/ModelContext.h"
#include "Data/Storage/StoreError.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace quillo {

/// The open store. The names stay: see docs/compatibility.md.
class ModelContainer {
public:
    /// A store file that could not be used and was kept under another name.
    struct SetAside {
        QString keptAs;          ///< full path
        StoreError::Cause cause; ///< damaged or newer
    };

    ModelContainer(std::unique_ptr<ModelContext> context, QString path, std::optional<SetAside> setAside);

    [[nodiscard]] ModelContext& mainContext() const { return *m_context; }
    /// The store file; empty for a store in memory.
    [[nodiscard]] const QString& path() const { return m_path; }
    /// Set when this is a new store because the previous one was unusable; to be shown to the user.
    [[nodiscard]] const std::optional<SetAside>& setAside() const { return m_setAside; }

private:
    std::unique_ptr<ModelContext> m_context;
    QString m_path;
    std::optional<SetAside> m_setAside;
};

/// Where the history is kept, and how it is opened. Main thread.
struct DataContainer {
    DataContainer() = delete;

    /// Version of the schema, and its model classes.
    static const QString schemaVersion;
    static const QStringList schema;

    /// "Quillo" in the user's data folder.
    static QString storeDirectory();
    /// "quillo.store" in it.
    static QString storeURL();
    /// "default.store" in the user's data folder, where earlier versions kept the history.
    static QString legacyStoreURL();

    /// Opens the store, creating or migrating it if needed, readable only by its owner. A damaged file is renamed,
    /// never deleted, and replaced by a new one. Throws StoreError when no store can be opened.
    static std::unique_ptr<ModelContainer> create();
    /// A store in memory, for use when `create` throws.
    static std::unique_ptr<ModelContainer> createInMemory();
    /// Opens the store without creating, migrating or changing it, for a second program beside the running one. Throws
    /// StoreError, also when there is no store yet.
    static std::unique_ptr<ModelContainer> openReadOnly();

    /// Inserts seven demonstration records of `userId`, once, when `arguments` contain "--seed-data".
    static void seedTestDataIfNeeded(ModelContext& context, const QStringList& arguments,
                                     const QString& userId = QStringLiteral("demo-user"));
};

} // namespace quillo
