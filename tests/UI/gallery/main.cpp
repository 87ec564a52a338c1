// Shows every state of the interface on made-up data and saves a picture of each, for designers and for a look after a
// change:  quillo-ui-gallery --output pictures [--dark] [--locale de]
// With --windows it shows the windows alone. With --idle it stays with a prepared, hidden pill, to have its memory and
// wake-ups measured.

#include "Features/Recording/RecordingReducer.h"
#include "Localization/LocalizationManager.h"
#include "UI/FakeApplication.h"
#include "UI/Foundation/ApplicationIcon.h"
#include "UI/Foundation/Texts.h"
#include "UI/Pill/FloatingPill.h"
#include "UI/Tray/TrayIcons.h"
#include "UI/UserInterface.h"
#include "WindowScenes.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QPainter>
#include <QPalette>
#include <QScreen>

#include <cmath>

using namespace quillo;

namespace {

struct Scene {
    QString name;
    std::vector<RecordingAction> actions;
};

QString words(const char* text) { return QString::fromUtf8(text); }

std::vector<Scene> scenes() {
    using namespace action;
    const auto partial = [](const char* text) { return PartialTranscriptReceived{words(text), 0.9F, {}, {}}; };
    const std::vector<RecordingAction> start{Reset{}, StartRecording{}};
    const std::vector<RecordingAction> started{Reset{}, StartRecording{}, SessionStarted{QStringLiteral("s"), false}};
    const auto with = [](std::vector<RecordingAction> actions, std::vector<RecordingAction> more) {
        actions.insert(actions.end(), more.begin(), more.end());
        return actions;
    };
    const auto failed = [](RecordingError::Kind kind) { return RecordingFailed{RecordingError(std::move(kind))}; };
    return {
        {QStringLiteral("connecting"), start},
        {QStringLiteral("recording"), started},
        {QStringLiteral("recording-target"), with(started, {TargetApplicationCaptured{QStringLiteral("Text Editor")}})},
        {QStringLiteral("recording-short"), with(started, {partial("Dear Ada,")})},
        {QStringLiteral("recording-long"),
         with(started, {SetHandsOff{true}, partial("thank you for the letter that came on Monday; I have read it twice "
                                                   "and think that we should meet before the end of the month")})},
        {QStringLiteral("recording-hover"), with(started, {SetHovering{true}, partial("Dear Ada, thank you")})},
        {QStringLiteral("recording-arabic"),
         with(started,
              {partial("شكرا جزيلا على الرسالة التي وصلت يوم الاثنين وقد قرأتها مرتين وأعتقد أننا يجب أن نلتقي "
                       "قبل نهاية الشهر الحالي")})},
        {QStringLiteral("recording-chinese"),
         with(started,
              {partial(
                  "谢谢你星期一寄来的信我已经读了两遍我认为我们应该在月底之前见一次面讨论一下接下来的计划和安排以及其"
                  "他的事情还有明年的工作")})},
        {QStringLiteral("recording-offline"), with(started, {SwitchedToOffline{}})},
        {QStringLiteral("processing"), with(started, {StopRecording{}})},
        {QStringLiteral("command"),
         with(started, {StopRecording{}, CommandDetected{QStringLiteral("make this sound friendlier"), {}}})},
        {QStringLiteral("cancelled"), with(started, {ShowCancelledMessage{}})},
        {QStringLiteral("error"), with(started, {failed(RecordingError::AudioCaptureFailed{})})},
        {QStringLiteral("error-long"), with(started, {failed(RecordingError::AccessibilityPermissionDenied{})})},
        {QStringLiteral("hint-history"), with(started, {StopRecording{}, ShowSavedToHistory{}, RecordingCompleted{}})},
        {QStringLiteral("hint-meeting"),
         with(started, {StopRecording{}, ShowMeetingProcessingHint{}, RecordingCompleted{}})},
        {QStringLiteral("ready"), {Reset{}, RecordingCompleted{}, SetHovering{true}}},
    };
}

QPalette darkPalette() {
    QPalette palette(QColor(0x2b, 0x2d, 0x34), QColor(0x24, 0x26, 0x2c));
    palette.setColor(QPalette::Text, Qt::white);
    palette.setColor(QPalette::WindowText, Qt::white);
    return palette;
}

class Gallery final : public QObject {
public:
    Gallery(QDir output, bool windowsOnly) : m_output(std::move(output)) {
        if (windowsOnly) {
            nextWindow();
            return;
        }
        m_levels.start(std::chrono::milliseconds(50));
        connect(&m_levels, &QTimer::timeout, this, [this] {
            ++m_step;
            // Syllables in words: fast swells under a slow one.
            const auto time = static_cast<float>(m_step) * 0.05F;
            const float level = std::abs(std::sin(time * 8)) * (0.55F + 0.45F * std::sin(time * 2.1F));
            if (m_store.state().status.isActive() && !m_store.state().status.is<RecordingState::Connecting>())
                m_store.send(action::AudioLevelUpdated{std::clamp(level, 0.0F, 1.0F)});
        });
        next();
    }

private:
    void next() {
        if (m_scene == m_scenes.size())
            return finish();
        for (const auto& action : m_scenes[m_scene].actions)
            m_store.send(action);
        QTimer::singleShot(std::chrono::milliseconds(1300), this, [this] {
            save(*m_pill.window(), m_scenes[m_scene].name);
            ++m_scene;
            next();
        });
    }

    void finish() {
        m_levels.stop();
        saveTrayIcons();
        nextWindow();
    }

    void nextWindow() {
        if (m_windowScene == m_windowScenes.size())
            return QCoreApplication::quit();
        const auto& scene = m_windowScenes[m_windowScene];
        auto* window = scene.show();
        QTimer::singleShot(scene.duration, this, [this, window, name = scene.name] {
            save(*window, name);
            ++m_windowScene;
            nextWindow();
        });
    }

    void save(QQuickWindow& window, const QString& name) {
        // The screen itself where there is one: it shows what the window manager and the mask make of the window.
        const auto area = window.geometry();
        const auto picture = QGuiApplication::platformName() == u"xcb"
                                 ? window.screen()->grabWindow(0, area.x(), area.y(), area.width(), area.height())
                                 : QPixmap::fromImage(window.grabWindow());
        if (!picture.save(m_output.filePath(name + QStringLiteral(".png"))))
            qFatal("The picture %s could not be written to %s.", qPrintable(name), qPrintable(m_output.path()));
    }

    void saveTrayIcons() {
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
        sheet.save(m_output.filePath(QStringLiteral("tray-icons.png")));
        applicationIcon().pixmap(64).save(m_output.filePath(QStringLiteral("application-icon.png")));
    }

    QDir m_output;
    quillo::test::FakeApplication m_fakes;
    SystemClock m_clock{EventExecutor::main()};
    RecordingReducer m_reducer{[] { return QDateTime::currentDateTimeUtc().addSecs(-73); }};
    RecordingStore m_store{
        EventExecutor::main(),
        RecordingState(),
        [this](const RecordingState& state, const RecordingAction& action) { return m_reducer.reduce(state, action); },
        {},
        [](const QString&, const QString&) {}};
    QmlEngineHost m_host;
    PillViewModel m_viewModel{m_store, m_clock, &Texts::lookUp, m_fakes.hooks.pillEnabled};
    FloatingPill m_pill{m_viewModel, m_host, m_fakes.hooks, *m_fakes.windowHints};
    WindowGallery m_windows{m_host, m_fakes, m_clock};
    std::vector<WindowScene> m_windowScenes = m_windows.scenes();
    size_t m_windowScene = 0;
    std::vector<Scene> m_scenes = scenes();
    size_t m_scene = 0;
    int m_step = 0;
    QTimer m_levels;
};

int runIdle(bool afterWindows) {
    quillo::test::FakeApplication fakes;
    RecordingStore store(
        EventExecutor::main(), RecordingState(),
        [](const RecordingState& state, const RecordingAction&) { return state; }, {},
        [](const QString&, const QString&) {});
    const auto interface = createUserInterface(store, fakes, fakes.hooks, *fakes.windowHints);
    interface->prepare();
    if (afterWindows) {
        interface->showWelcome();
        QTimer::singleShot(std::chrono::seconds(1), [&] {
            interface->showAccount();
            QTimer::singleShot(std::chrono::seconds(1), [] {
                for (auto* window : QGuiApplication::topLevelWindows())
                    window->close();
            });
        });
    }
    return QApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    configureRendering();
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QCommandLineParser options;
    options.addHelpOption();
    options.addOptions(
        {{QStringLiteral("output"), QStringLiteral("Folder for the pictures."), QStringLiteral("folder"),
          QStringLiteral("quillo-ui-gallery")},
         {QStringLiteral("dark"), QStringLiteral("Use a dark palette.")},
         {QStringLiteral("locale"), QStringLiteral("Interface language."), QStringLiteral("code"),
          QStringLiteral("en")},
         {QStringLiteral("font-scale"), QStringLiteral("Size of the text."), QStringLiteral("factor"),
          QStringLiteral("1")},
         {QStringLiteral("windows"), QStringLiteral("Show the windows alone.")},
         {QStringLiteral("idle"), QStringLiteral("Wait with a hidden pill.")},
         {QStringLiteral("after-windows"), QStringLiteral("Before --idle open and close the windows.")}});
    options.process(application);
    if (options.isSet(QStringLiteral("dark")))
        QApplication::setPalette(darkPalette());
    auto font = QApplication::font();
    font.setPointSizeF(font.pointSizeF() * options.value(QStringLiteral("font-scale")).toDouble());
    QApplication::setFont(font);
    LocalizationManager::shared().setLocale(options.value(QStringLiteral("locale")));
    if (options.isSet(QStringLiteral("idle")))
        return runIdle(options.isSet(QStringLiteral("after-windows")));
    const QDir output(options.value(QStringLiteral("output")));
    if (!output.mkpath(QStringLiteral(".")))
        qFatal("The folder %s cannot be made.", qPrintable(output.path()));
    const Gallery gallery(output, options.isSet(QStringLiteral("windows")));
    return QApplication::exec();
}
