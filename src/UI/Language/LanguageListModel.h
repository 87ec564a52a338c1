#pragma once

#include "UI/Foundation/UserInterfaceHooks.h"

#include <QAbstractListModel>

namespace quillo {

/// The dictation languages that match what was typed: by their own name, their name in English or in the
/// interface language, or their code, without
/// regard to case and accents. Names that begin with the search text come first.
class LanguageListModel final : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(QString filter READ filter WRITE setFilter NOTIFY filterChanged)
    /// Row of the current language; 0 when the filter hides it, -1 when there is no row.
    Q_PROPERTY(int currentRow READ currentRow NOTIFY filterChanged)
    /// The names of the languages that the server understands; empty when it understands all or cannot tell.
    Q_PROPERTY(QString servedNames READ servedNames NOTIFY servedChanged)

public:
    enum Role { CodeRole = Qt::UserRole, NativeNameRole, NameRole, CurrentRole, ServedRole };

    explicit LanguageListModel(InterfaceChoices languages);

    [[nodiscard]] QString filter() const { return m_filter; }
    void setFilter(const QString& filter);
    [[nodiscard]] int currentRow() const;
    /// The code at `row`; empty outside the list.
    Q_INVOKABLE QString codeAt(int row) const;
    /// Marks `code` as the current language.
    void setCurrent(const QString& code);

    [[nodiscard]] QString servedNames() const;
    Q_INVOKABLE bool isServed(const QString& code) const;
    /// The name of `code` in the interface language.
    Q_INVOKABLE QString nameOf(const QString& code) const;
    /// Takes over which of the same languages the server understands.
    void setServed(const InterfaceChoices& languages);

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void filterChanged();
    void servedChanged();

private:
    struct FoldedNames {
        QString own;
        QString english;
        QString translated;
    };
    void foldNames();
    [[nodiscard]] static QString ownName(const InterfaceChoice& language);
    /// In the interface language.
    [[nodiscard]] static QString translatedName(const InterfaceChoice& language);
    /// 0: begins with the search text, 1: contains it, 2: neither.
    [[nodiscard]] int rank(size_t language, const QString& wanted) const;

    InterfaceChoices m_all;
    std::vector<FoldedNames> m_names; ///< the folded names of m_all
    InterfaceChoices m_matching;
    QString m_filter;
};

} // namespace quillo
