#include "UI/Language/LanguageListModel.h"

#include "Core/SupportedLanguages.h"
#include "Localization/LocalizationManager.h"
#include "UI/Foundation/Texts.h"

namespace quillo {

namespace {

/// Folds case and removes accents, for comparison.
QString folded(const QString& text) {
    QString plain;
    const auto decomposed = text.normalized(QString::NormalizationForm_KD);
    for (const auto character : decomposed)
        if (character.category() != QChar::Mark_NonSpacing)
            plain.append(character);
    return plain.toCaseFolded();
}

} // namespace

LanguageListModel::LanguageListModel(InterfaceChoices languages) : m_all(std::move(languages)), m_matching(m_all) {
    foldNames();
    Texts::follow(this, [this] {
        foldNames();
        if (!m_matching.empty())
            Q_EMIT dataChanged(index(0), index(rowCount() - 1), {NativeNameRole, NameRole});
        Q_EMIT servedChanged();
    });
}

void LanguageListModel::foldNames() {
    m_names.clear();
    for (const auto& language : m_all)
        m_names.push_back({folded(ownName(language)), folded(language.detail), folded(translatedName(language))});
}

QString LanguageListModel::ownName(const InterfaceChoice& language) {
    return language.id == SupportedLanguages::automatic ? Texts::lookUp(QStringLiteral("languagePicker.automatic"))
                                                        : language.name;
}

QString LanguageListModel::translatedName(const InterfaceChoice& language) {
    if (language.id == SupportedLanguages::automatic)
        return {};
    const auto name = LocalizationManager::shared().languageName(language.id);
    return name.isEmpty() ? language.detail : name;
}

int LanguageListModel::rank(size_t language, const QString& wanted) const {
    const auto& [own, english, translated] = m_names[language];
    if (own.startsWith(wanted) || english.startsWith(wanted) || translated.startsWith(wanted) ||
        m_all[language].id == wanted)
        return 0;
    return own.contains(wanted) || english.contains(wanted) || translated.contains(wanted) ? 1 : 2;
}

void LanguageListModel::setFilter(const QString& filter) {
    if (filter == m_filter)
        return;
    m_filter = filter;
    const auto wanted = folded(filter.simplified());
    beginResetModel();
    if (wanted.isEmpty()) {
        m_matching = m_all;
    } else {
        m_matching.clear();
        InterfaceChoices within;
        for (size_t language = 0; language < m_all.size(); ++language)
            if (const int place = rank(language, wanted); place < 2)
                (place == 0 ? m_matching : within).push_back(m_all[language]);
        std::ranges::move(within, std::back_inserter(m_matching));
    }
    endResetModel();
    Q_EMIT filterChanged();
}

int LanguageListModel::currentRow() const {
    if (m_matching.empty())
        return -1;
    // After typing, select the best match instead of the earlier choice.
    const auto current = std::ranges::find_if(m_matching, &InterfaceChoice::isCurrent);
    if (!m_filter.isEmpty() || current == m_matching.end())
        return 0;
    return static_cast<int>(current - m_matching.begin());
}

QString LanguageListModel::codeAt(int row) const {
    return row >= 0 && row < rowCount() ? m_matching[static_cast<size_t>(row)].id : QString();
}

void LanguageListModel::setCurrent(const QString& code) {
    for (auto* languages : {&m_all, &m_matching})
        for (auto& language : *languages)
            language.isCurrent = language.id == code;
    if (!m_matching.empty())
        Q_EMIT dataChanged(index(0), index(rowCount() - 1), {CurrentRole});
}

QString LanguageListModel::servedNames() const {
    if (std::ranges::all_of(m_all, &InterfaceChoice::isServed))
        return {};
    QStringList names;
    for (const auto& language : m_all)
        if (language.isServed && language.id != SupportedLanguages::automatic)
            names << translatedName(language);
    return names.join(QStringLiteral(", "));
}

bool LanguageListModel::isServed(const QString& code) const {
    const auto found = std::ranges::find(m_all, code, &InterfaceChoice::id);
    return found == m_all.end() || found->isServed;
}

QString LanguageListModel::nameOf(const QString& code) const {
    const auto found = std::ranges::find(m_all, code, &InterfaceChoice::id);
    return found == m_all.end() ? code : translatedName(*found);
}

void LanguageListModel::setServed(const InterfaceChoices& languages) {
    for (auto* own : {&m_all, &m_matching})
        for (auto& language : *own)
            if (const auto found = std::ranges::find(languages, language.id, &InterfaceChoice::id);
                found != languages.end())
                language.isServed = found->isServed;
    if (!m_matching.empty())
        Q_EMIT dataChanged(index(0), index(rowCount() - 1), {ServedRole});
    Q_EMIT servedChanged();
}

int LanguageListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_matching.size());
}

QVariant LanguageListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const auto& language = m_matching[static_cast<size_t>(index.row())];
    switch (role) {
    case CodeRole:
        return language.id;
    case Qt::DisplayRole:
    case NativeNameRole:
        return ownName(language);
    case NameRole:
        return translatedName(language);
    case CurrentRole:
        return language.isCurrent;
    case ServedRole:
        return language.isServed;
    default:
        return {};
    }
}

QHash<int, QByteArray> LanguageListModel::roleNames() const {
    return {{CodeRole, "code"},
            {NativeNameRole, "nativeName"},
            {NameRole, "translatedName"},
            {CurrentRole, "current"},
            {ServedRole, "served"}};
}

} // namespace quillo
