// Shows every state of the interface on made-up data and saves a picture of each, for designers and for a look after a
// change:  quillo-ui-gallery --output pictures [--dark] [--locale de]

#include "Localization/LocalizationManager.h"
#include "UI/Account/AccountWindow.h"
#include "UI/FakeApplication.h"
#include "UI/Foundation/ApplicationIcon.h"
#include "UI/Foundation/Texts.h"
#include "UI/Keys.h"
#include "UI/Language/LanguagePickerWindow.h"
#include "UI/Pill/FloatingPill.h"
#include "UI/RecordingFixture.h"
#include "UI/Tray/TrayIcons.h"
#include "UI/UserInterface.h"
#include "UI/Welcome/WelcomeWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QPainter>
#include <QPalette>
#include <QScreen>
#include <QTimer>

#include <cmath>

using namespace quillo;
using namespace std::chrono_literals;

namespace {

const AccountState anonymous{.kind = AccountState::Kind::anonymous};
const AccountState failing{.kind = AccountState::Kind::anonymous,
                           .message = u"The browser could not be opened. Open https://quillo.example/auth/login."_qs};
const AccountState signedIn{
    .kind = AccountState::Kind::signedIn, .name = u"Ada Lovelace"_qs, .email = u"ada@example.org"_qs};

/// A window in one of its states, which stays on the screen until the next scene.
struct Scene {
    const char* name;
    std::function<QQuickWindow*()> show;
    std::chrono::milliseconds duration{500};
};

QPalette darkPalette() {
    QPalette palette(QColor(0x2b, 0x2d, 0x34), QColor(0x24, 0x26, 0x2c));
    palette.setColor(QPalette::Text, Qt::white);
    palette.setColor(QPalette::WindowText, Qt::white);
    return palette;
}

class Gallery final : public QObject {
public:
    explicit Gallery(QDir output) : m_output(std::move(output)) {
        connect(&m_levels, &QTimer::timeout, this, [this] { speak(); });
        m_levels.start(50ms);
        next();
    }

private:
    std::vector<Scene> scenes() {
        auto all = pillScenes();
        for (const auto& more : {windowScenes(), accountScenes()})
            all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    std::vector<Scene> pillScenes() {
        using namespace action;
        const auto after = [this](std::vector<RecordingAction> first) {
            return [this, first](std::vector<RecordingAction> actions) {
                return [this, first, actions]() -> QQuickWindow* {
                    for (const auto& list : {first, actions})
                        for (const auto& action : list)
                            m_recording.store.send(action);
                    return m_pill.window();
                };
            };
        };
        const auto idle = after({Reset{}});
        const auto started = after({Reset{}, StartRecording{}, SessionStarted{u"s"_qs, false}});
        const auto heard = [](const char* text) {
            return PartialTranscriptReceived{QString::fromUtf8(text), 0.9F, {}, {}};
        };
        const auto failed = [](RecordingError::Kind kind) { return RecordingFailed{RecordingError(std::move(kind))}; };
        const char* const english = "thank you for the letter that came on Monday; I have read it twice and think that "
                                    "we should meet before the end of the month";
        const char* const arabic =
            "شكرا جزيلا على الرسالة التي وصلت يوم الاثنين وقد قرأتها مرتين وأعتقد أننا يجب أن نلتقي "
            "قبل نهاية الشهر الحالي";
        const char* const chinese = "谢谢你星期一寄来的信我已经读了两遍我认为我们应该在月底之前见一次面讨论一下接下来的"
                                    "计划和安排以及其他的事情还有明年的工作";
        return {
            {"connecting", idle({StartRecording{}}), 1300ms},
            {"recording", started({}), 1300ms},
            {"recording-target", started({TargetApplicationCaptured{u"Text Editor"_qs}}), 1300ms},
            {"recording-short", started({heard("Dear Ada,")}), 1300ms},
            {"recording-long", started({SetHandsOff{true}, heard(english)}), 1300ms},
            {"recording-hover", started({SetHovering{true}, heard("Dear Ada, thank you")}), 1300ms},
            {"recording-arabic", started({heard(arabic)}), 1300ms},
            {"recording-chinese", started({heard(chinese)}), 1300ms},
            {"recording-offline", started({SwitchedToOffline{}}), 1300ms},
            {"processing", started({StopRecording{}}), 1300ms},
            {"command", started({StopRecording{}, CommandDetected{u"make this sound friendlier"_qs, {}}}), 1300ms},
            {"cancelled", started({ShowCancelledMessage{}}), 1300ms},
            {"error", started({failed(RecordingError::AudioCaptureFailed{})}), 1300ms},
            {"error-long", started({failed(RecordingError::AccessibilityPermissionDenied{})}), 1300ms},
            {"hint-history", started({StopRecording{}, ShowSavedToHistory{}, RecordingCompleted{}}), 1300ms},
            {"hint-meeting", started({StopRecording{}, ShowMeetingProcessingHint{}, RecordingCompleted{}}), 1300ms},
            {"ready", idle({RecordingCompleted{}, SetHovering{true}}), 1300ms},
        };
    }

    std::vector<Scene> windowScenes() {
        const auto at = [this](const char* step, std::function<void()> then = {}) {
            return [this, step, then] { return welcomeAt(step, then); };
        };
        const auto same = [this](const std::function<void()>& change) {
            return [this, change] {
                change();
                return m_welcome.get();
            };
        };
        return {
            {"language-picker", [this] { return show(m_picker, m_host, m_application.hooks); }},
            {"welcome-1-language", at("language")},
            {"welcome-2-hotkey", at("hotkey")},
            {"welcome-2-hotkey-overdue", at("hotkey"), HotkeyTrial::patience + 500ms},
            {"welcome-2-hotkey-held", at("hotkey", [this] { m_application.hotkeyObserver(true); })},
            {"welcome-2-hotkey-works", same([this] { m_application.hotkeyObserver(false); })},
            {"welcome-2-hotkey-unavailable",
             [this] {
                 const auto key = std::exchange(m_application.hotkey, {});
                 auto* const window = welcomeAt("hotkey");
                 m_application.hotkey = key;
                 return window;
             }},
            {"welcome-3-microphone-quiet", at("microphone"), MicrophoneTest::patience + 700ms},
            {"welcome-3-microphone-listening", at("microphone")},
            {"welcome-3-microphone-heard", same([this] { m_isSpeaking = true; }), 3000ms},
            {"welcome-3-microphone-failed",
             same([this] { m_application.microphoneFailure(u"No sound server answers: connection refused."_qs); })},
            {"welcome-4-account", at("account")},
            {"welcome-4-account-waiting", same([this] { m_account.signIn(); })},
            {"welcome-4-account-failed", same([this] { become(failing); })},
            {"welcome-4-account-signed-in", same([this] { become(signedIn); })},
            {"welcome-5-ready", at("ready")},
        };
    }

    std::vector<Scene> accountScenes() {
        const auto of = [this](const AccountState& state, std::function<void()> then = {}) {
            return [this, state, then] {
                become(state);
                auto* const window = show(m_accountWindow, m_host, m_account);
                if (then)
                    then();
                return window;
            };
        };
        return {
            {"account-none", of({})},
            {"account-anonymous", of(anonymous)},
            {"account-failed", of(failing)},
            {"account-waiting", of(anonymous, [this] { m_account.signIn(); })},
            {"account-signed-in", of(signedIn)},
            {"account-delete", of(signedIn,
                                  [this] {
                                      for (const auto key : {Qt::Key_Tab, Qt::Key_Tab, Qt::Key_Return})
                                          test::press(*m_accountWindow, key);
                                  })},
            {"account-busy", of(signedIn, [this] { m_account.deleteAccount(); })},
        };
    }

    template <class Window, class... Arguments>
    QQuickWindow* show(std::unique_ptr<Window>& window, Arguments&... arguments) {
        m_picker.reset();
        m_welcome.reset();
        m_accountWindow.reset();
        window = std::make_unique<Window>(arguments...);
        window->present();
        return window.get();
    }
    QQuickWindow* welcomeAt(const char* step, const std::function<void()>& then = {}) {
        auto* const window = show(m_welcome, m_host, m_application.hooks, m_account, m_clock);
        m_welcome->viewModel().setShown(true);
        m_welcome->viewModel().goTo(QString::fromLatin1(step));
        if (then)
            then();
        return window;
    }
    void become(const AccountState& state) {
        m_application.accountState = state;
        m_account.refresh();
    }

    /// Syllables in words: fast swells under a slow one.
    void speak() {
        m_time += 0.05F;
        const float level = std::abs(std::sin(m_time * 8)) * (0.55F + 0.45F * std::sin(m_time * 2.1F));
        if (m_recording.store.state().status.isActive())
            m_recording.store.send(action::AudioLevelUpdated{level});
        if (m_application.isMicrophoneOpen)
            m_application.microphoneLevel(m_isSpeaking ? level : 0.06F);
    }

    void next() {
        if (m_scene == m_scenes.size()) {
            saveIcons();
            return QCoreApplication::quit();
        }
        const auto& scene = m_scenes[m_scene++];
        auto* const window = scene.show();
        QTimer::singleShot(scene.duration, this, [this, window, name = QString::fromLatin1(scene.name)] {
            save(*window, name);
            next();
        });
    }

    void save(QQuickWindow& window, const QString& name) {
        // The screen itself where there is one: it shows what the window manager and the mask make of the window.
        const auto area = window.geometry();
        const auto picture = QGuiApplication::platformName() == u"xcb"
                                 ? window.screen()->grabWindow(0, area.x(), area.y(), area.width(), area.height())
                                 : QPixmap::fromImage(window.grabWindow());
        if (!picture.save(m_output.filePath(name + u".png"_qs)))
            qFatal("The picture %s could not be written to %s.", qPrintable(name), qPrintable(m_output.path()));
    }

    void saveIcons() {
        QPixmap sheet(5 * 60 + 20, 2 * 150);
        sheet.fill(QColor(0xf2, 0xf2, 0xf2));
        QPainter painter(&sheet);
        painter.fillRect(0, 150, sheet.width(), 150, QColor(0x22, 0x22, 0x26));
        for (int row = 0; row < 2; ++row)
            for (int column = 0; column < 5; ++column) {
                const auto icon = trayIcon(static_cast<TrayIcon>(column), row == 1);
                int y = 12 + row * 150;
                for (const int size : {16, 22, 32, 48}) {
                    painter.drawPixmap(20 + column * 60, y, icon.pixmap(size));
                    y += size + 5;
                }
            }
        painter.end();
        sheet.save(m_output.filePath(u"tray-icons.png"_qs));
        applicationIcon().pixmap(64).save(m_output.filePath(u"application-icon.png"_qs));
    }

    QDir m_output;
    test::FakeApplication m_application;
    test::RecordingFixture m_recording;
    SystemClock m_clock{EventExecutor::main()};
    QmlEngineHost m_host;
    PillViewModel m_viewModel{m_recording.store, m_clock, &Texts::lookUp, m_application.hooks.pillEnabled};
    FloatingPill m_pill{m_viewModel, m_host, m_application.hooks, *m_application.windowHints};
    AccountModel m_account{m_application};
    std::unique_ptr<LanguagePickerWindow> m_picker;
    std::unique_ptr<WelcomeWindow> m_welcome;
    std::unique_ptr<AccountWindow> m_accountWindow;
    std::vector<Scene> m_scenes = scenes();
    size_t m_scene = 0;
    QTimer m_levels;
    float m_time = 0;
    bool m_isSpeaking = false;
};

} // namespace

int main(int argc, char** argv) {
    configureRendering();
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QCommandLineParser options;
    options.addHelpOption();
    options.addOptions({{u"output"_qs, u"Folder for the pictures."_qs, u"folder"_qs, u"quillo-ui-gallery"_qs},
                        {u"dark"_qs, u"Use a dark palette."_qs},
                        {u"locale"_qs, u"Interface language."_qs, u"code"_qs, u"en"_qs},
                        {u"font-scale"_qs, u"Size of the text."_qs, u"factor"_qs, u"1"_qs}});
    options.process(application);
    if (options.isSet(u"dark"_qs))
        QApplication::setPalette(darkPalette());
    auto font = QApplication::font();
    font.setPointSizeF(font.pointSizeF() * options.value(u"font-scale"_qs).toDouble());
    QApplication::setFont(font);
    LocalizationManager::shared().setLocale(options.value(u"locale"_qs));
    const QDir output(options.value(u"output"_qs));
    if (!output.mkpath(u"."_qs))
        qFatal("The folder %s cannot be made.", qPrintable(output.path()));
    const Gallery gallery(output);
    return QApplication::exec();
}
