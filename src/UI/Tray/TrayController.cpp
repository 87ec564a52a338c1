#include "UI/Tray/TrayController.h"

#include "Core/Log.h"
#include "Core/SupportedLanguages.h"
#include "UI/Foundation/Texts.h"
#include "UI/Tray/TrayDialogs.h"
#include "UI/Tray/TrayIcons.h"

#include <QActionGroup>
#include <QLocale>
#include <QPointer>

namespace quillo {

namespace {

/// Long device names would make the menu as wide as the screen.
constexpr qsizetype longestEntry = 60;
/// The property of an entry that holds the key of its text.
constexpr const char* textKey = "textKey";

QString entryText(QString text) {
    if (text.size() > longestEntry)
        text = text.left(longestEntry - 1) + QChar(0x2026);
    return text.replace(u'&', QStringLiteral("&&"));
}

/// Sixty languages would fill the screen; the window has them all.
bool isLikely(const InterfaceChoice& language) {
    return language.isCurrent || language.id == SupportedLanguages::automatic || language.id == QStringLiteral("en") ||
           language.id == SupportedLanguages::codeForLocale(QLocale::system().name());
}

} // namespace

TrayController::TrayController(RecordingStore& store, Commands& commands, const UserInterfaceHooks& hooks,
                               Translate translate, const AccountModel& account, std::function<void()> showAccount,
                               std::function<void()> showLanguages, std::unique_ptr<TrayHost> host)
    : m_store(store), m_commands(commands), m_hooks(hooks), m_translate(std::move(translate)), m_account(account),
      m_showAccount(std::move(showAccount)), m_showLanguages(std::move(showLanguages)), m_host(std::move(host)) {
    build();
    present(m_store.state());
    m_observation =
        m_store.observeLater([this](const RecordingState&, const RecordingState& after) { present(after); });
    Texts::follow(this, [this] { translateAgain(); });
    connect(m_host.get(), &TrayHost::available, this, [this] { showIcon(); });
    connect(m_host.get(), &TrayHost::unavailable, this, [] {
        appLog(QStringLiteral("[Tray] ⚠️ No host for tray icons on this desktop; the application runs without its icon "
                              "and shows it when a host appears. The command line reaches it too: quillo status"),
               LogLevel::warn, QStringLiteral("Tray"));
    });
}

TrayController::~TrayController() = default;

void TrayController::start() { m_host->watch(); }

QAction* TrayController::addEntry(const QString& key, std::function<void()> perform) {
    auto* const entry = m_menu.addAction(m_translate(key), this, [perform = std::move(perform)] { perform(); });
    entry->setProperty(textKey, key);
    return entry;
}

QMenu* TrayController::addSubmenu(const QString& key) {
    auto* const submenu = m_menu.addMenu(m_translate(key));
    submenu->menuAction()->setProperty(textKey, key);
    return submenu;
}

void TrayController::translateAgain() {
    for (auto* entry : m_menu.actions())
        if (const auto key = entry->property(textKey).toString(); !key.isEmpty())
            entry->setText(m_translate(key));
    presentAccount();
    presentConflict();
    present(m_store.state());
}

void TrayController::build() {
    m_toggle = m_menu.addAction(QString(), this, [this] { m_commands.toggle(); });
    m_cancel = addEntry(QStringLiteral("tray.cancel"), [this] { m_commands.cancel(); });
    m_menu.addSeparator();
    m_insertAgain = addEntry(QStringLiteral("tray.pasteAgain"), [this] { m_commands.insertAgain(); });
    m_menu.addSeparator();
    if (m_hooks.listMicrophones) {
        m_microphones = addSubmenu(QStringLiteral("tray.microphone"));
        connect(m_microphones, &QMenu::aboutToShow, this, [this] { buildMicrophones(); });
        // Add an entry, because some panels do not show an empty menu and then never ask it to fill itself.
        m_microphones->addAction(m_translate(QStringLiteral("tray.systemDefaultMicrophone")))->setEnabled(false);
    }
    if (m_hooks.listLanguages) {
        m_languages = addSubmenu(QStringLiteral("tray.language"));
        connect(m_languages, &QMenu::aboutToShow, this, [this] { buildLanguages(); });
        m_languages->addAction(QStringLiteral("…"))->setEnabled(false);
    }
    m_menu.addSeparator();
    m_conflict = m_menu.addAction(QString());
    m_conflict->setEnabled(false);
    m_takeFree = m_menu.addAction(QString(), this, [this] { m_hooks.takeFreeHotkey(); });
    presentConflict();
    addApplicationEntries();
    connect(&m_menu, &QMenu::aboutToShow, this, [this] {
        m_insertAgain->setEnabled(!m_commands.lastText().isEmpty());
        presentConflict();
    });
}

void TrayController::addApplicationEntries() {
    m_accountEntry = addEntry(QStringLiteral("tray.signIn"), m_showAccount);
    connect(&m_account, &AccountModel::changed, this, [this] { presentAccount(); });
    presentAccount();
    if (m_hooks.hotkeySteps && m_hooks.hotkeyName && m_hooks.hotkeyName().isEmpty()) {
        const auto key = QStringLiteral("tray.setUpHotkey");
        addEntry(key, [this, key] { trayDialogs::showSteps(m_translate(key), m_hooks.hotkeySteps()); });
    }
    addEntry(QStringLiteral("tray.settings"), &trayDialogs::openSettings);
    addEntry(QStringLiteral("tray.showLog"), &trayDialogs::openLog);
    addEntry(QStringLiteral("tray.about"), &trayDialogs::showAbout);
    m_menu.addSeparator();
    addEntry(QStringLiteral("tray.quit"), [this] { m_commands.quit(); });
}

void TrayController::presentAccount() {
    m_accountEntry->setText(m_account.isSignedIn() ? entryText(m_account.title())
                                                   : m_translate(QStringLiteral("tray.signIn")));
}

void TrayController::presentConflict() {
    const auto conflict = m_hooks.hotkeyConflict ? m_hooks.hotkeyConflict() : std::nullopt;
    const auto show = [](QAction& entry, const QString& text) {
        entry.setVisible(!text.isEmpty());
        entry.setText(QString(text).replace(u'&', QStringLiteral("&&")));
    };
    show(*m_conflict, conflict ? conflict->message : QString());
    show(*m_takeFree, conflict && m_hooks.takeFreeHotkey ? conflict->offer : QString());
}

void TrayController::buildMicrophones() {
    m_hooks.listMicrophones([menu = QPointer(m_microphones), this](const InterfaceChoices& choices) {
        if (!menu) // the answer came after destruction
            return;
        menu->clear();
        auto* group = new QActionGroup(menu);
        const auto add = [&](const QString& text, bool current, std::optional<QString> id) {
            auto* entry = menu->addAction(entryText(text), this, [this, id = std::move(id)] {
                if (m_hooks.selectMicrophone)
                    m_hooks.selectMicrophone(id);
            });
            entry->setCheckable(true);
            entry->setChecked(current);
            group->addAction(entry);
        };
        const bool chosen = std::ranges::any_of(choices, &InterfaceChoice::isCurrent);
        add(m_translate(QStringLiteral("tray.systemDefaultMicrophone")), !chosen, std::nullopt);
        if (!choices.empty())
            menu->addSeparator();
        for (const auto& choice : choices)
            add(choice.name, choice.isCurrent, choice.id);
    });
}

void TrayController::buildLanguages() {
    m_languages->clear();
    auto* group = new QActionGroup(m_languages);
    const auto note = QStringLiteral(" – ") + m_translate(QStringLiteral("languagePicker.notServed"));
    for (const auto& choice : m_hooks.listLanguages()) {
        if (!isLikely(choice))
            continue;
        const auto name = choice.isServed ? choice.name : QString(choice.name + note);
        auto* entry = m_languages->addAction(entryText(name), this, [this, code = choice.id] {
            if (m_hooks.selectLanguage)
                m_hooks.selectLanguage(code);
        });
        entry->setCheckable(true);
        entry->setChecked(choice.isCurrent);
        group->addAction(entry);
    }
    m_languages->addSeparator();
    m_languages->addAction(m_translate(QStringLiteral("tray.moreLanguages")), this, [this] { m_showLanguages(); });
}

void TrayController::showIcon() {
    m_icon = std::make_unique<QSystemTrayIcon>(trayIcon(m_shown.icon, isPanelDark()));
    m_icon->setToolTip(m_shown.toolTip);
    m_icon->setContextMenu(&m_menu);
    m_icon->show();
    appLog(QStringLiteral("[Tray] ✅ Tray icon shown"), LogLevel::info, QStringLiteral("Tray"));
}

void TrayController::present(const RecordingState& state) {
    auto next = presentTray(state, m_translate);
    if (next == m_shown)
        return;
    m_shown = std::move(next);
    m_toggle->setText(m_shown.toggleText);
    m_cancel->setEnabled(m_shown.canCancel);
    m_insertAgain->setEnabled(!m_commands.lastText().isEmpty());
    if (m_icon) {
        m_icon->setIcon(trayIcon(m_shown.icon, isPanelDark()));
        m_icon->setToolTip(m_shown.toolTip);
    }
}

} // namespace quillo
