#pragma once

#include "Data/DataContainer.h"
#include "Support/Files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {

/// A data folder of the test's own, and the store in it.
class StoreFixture : public testing::Test {
protected:
    StoreFixture() { qputenv("XDG_DATA_HOME", QFile::encodeName(folder.path())); }
    ~StoreFixture() override { qunsetenv("XDG_DATA_HOME"); }

    /// Opens the store; what was open before is closed first.
    ModelContext& open() {
        container.reset();
        container = DataContainer::create();
        return container->mainContext();
    }

    static RecordPointer newRecord(const QString& text, qint64 secondsAgo = 0) {
        auto record = std::make_shared<TranscriptionRecord>(u"user"_qs, text, u"session"_qs);
        record->createdAt = QDateTime::fromSecsSinceEpoch(1'790'000'000 - secondsAgo, Qt::UTC);
        return record;
    }

    static QStringList texts(const QList<RecordPointer>& records) {
        QStringList list;
        for (const auto& record : records)
            list.append(record->text);
        return list;
    }

    static RecordQuery searchFor(const QString& words) {
        RecordQuery query;
        query.search = words;
        return query;
    }

    [[nodiscard]] QStringList files(const QString& pattern) const {
        return QDir(DataContainer::storeDirectory()).entryList({pattern}, QDir::Files, QDir::Name);
    }

    QTemporaryDir folder;
    std::unique_ptr<ModelContainer> container;
};

} // namespace quillo::test
