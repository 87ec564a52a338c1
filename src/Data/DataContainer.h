#pragma once

#include "Data/ModelContext.h"
#include "Data/StoreError.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace quillo {

/// The open store.
class ModelContainer {
public:
    /// A store file that could not be used and was kept under another name.
    struct SetAside {
        QString keptAs; ///< full path
        QString reason; ///< a sentence for the user
    };

    ModelContainer(std::unique_ptr<ModelContext> context, QString path, std::optional<SetAside> setAside);

    [[nodiscard]] ModelContext& mainContext() const { return *m_context; }
    /// The store file; empty for a store in memory.
    [[nodiscard]] const QString& path() const { return m_path; }
    /// Set when this is a fresh store because the one before could not be used: tell the user.
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

    /// Opens the store, made or migrated first where needed, and readable by its owner alone. A damaged file is set
    /// aside, never deleted, and a fresh one takes its place. Throws StoreError when there can be no store.
    static std::unique_ptr<ModelContainer> create();
    /// A store that lasts as long as the process, for when `create` throws.
    static std::unique_ptr<ModelContainer> createInMemory();
    /// The store as it is, for a program beside the running one: nothing is made, migrated or changed. Throws
    /// StoreError, also when there is no store yet.
    static std::unique_ptr<ModelContainer> openReadOnly();

    /// Inserts seven demonstration records of `userId`, once, when `arguments` hold "--seed-data".
    static void seedTestDataIfNeeded(ModelContext& context, const QStringList& arguments,
                                     const QString& userId = QStringLiteral("demo-user"));
};

} // namespace quillo
