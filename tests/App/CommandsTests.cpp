// What D-Bus, the command line, the tray and the windows ask of the application, over the mock services.

#include "App/Account/AccountController.h"
#include "App/Commands/ApplicationCommands.h"
#include "App/Commands/StatusReport.h"
#include "App/Commands/UnavailableCommands.h"
#include "App/Dictation/Dictation.h"
#include "App/Dictation/SessionGuard.h"
#include "App/History/RecordingQueue.h"
#include "App/Remote/SettingsText.h"
#include "App/System/ServiceContainer.h"
#include "Core/UserError.h"
#include "Data/DataContainer.h"
#include "Localization/LocalizationManager.h"
#include "Services/History/HistoryError.h"
#include "Services/Mock/MockServices.h"
#include "Services/Recordings/PendingAudioFiles.h"
#include "Support/Async.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

/// Settings, history and audio of these tests alone; before anything asks for a folder.
struct Home {
    QTemporaryDir folder;
    Home() {
        for (const char* variable : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"})
            qputenv(variable, QFile::encodeName(folder.path()));
    }
};
const Home home;

class CommandsTest : public testing::Test {
protected:
    CommandsTest() {
        settings.chooseLanguages(u"en"_qs);
        settings.setValue(u"playSound"_qs, false);
    }
    ~CommandsTest() override { await(dictation.effects().shutDown()); }

    static UserSettings& sharedSettings() {
        qputenv("USE_MOCK_SERVICES", "1");
        return UserSettings::shared();
    }
    ModelContext& history() { return container->mainContext(); }
    bool eventually(const std::function<bool()>& condition) {
        return waitUntil([&] {
            clock.advance(50ms);
            return condition();
        });
    }
    QJsonObject status() const { return QJsonDocument::fromJson(commands.status().toUtf8()).object(); }
    bool becomes(const QString& word) {
        return eventually([&] { return status().value(u"status"_qs) == word; });
    }
    QString add(const QString& recordStatus) {
        const auto record = std::make_shared<TranscriptionRecord>();
        record->status = recordStatus;
        record->text = u"said"_qs;
        history().insert(record);
        history().save();
        return record->id.toString(QUuid::WithoutBraces);
    }

    UserSettings& settings = sharedSettings();
    ManualClock clock{EventExecutor::main()};
    TaskRunner tasks{[](const QString& name, const QString& error) {
        ADD_FAILURE() << name.toStdString() << ": " << error.toStdString();
    }};
    std::unique_ptr<ModelContainer> container = DataContainer::createInMemory();
    ServiceContainer services{clock, settings, ServerEnvironment::fromEnvironment(u"localhost"_qs)};
    int signIns = 0;
    AccountController account{*services.authService, tasks, [] {}, [this] { ++signIns; }, [] {}};
    RecordingQueue queue{services, &history(), u"localhost"_qs, clock, tasks};
    Dictation dictation{services, settings, clock, tasks, {&history(), nullptr}, [] {}};
    ApplicationCommands::Parts parts{.services = services,
                                     .store = dictation.store(),
                                     .effects = dictation.effects(),
                                     .account = account,
                                     .tasks = tasks,
                                     .history = &history(),
                                     .queue = [this] { return queue.manager(); },
                                     .serverHost = [] { return u"localhost"_qs; },
                                     .show = [] {},
                                     .quit = [] {}};
    ApplicationCommands commands{parts};
};

TEST(StatusReport, NamesAHotkeyThatAnotherProgramHolds) {
    const HotkeyConflict conflict{
        Hotkey::toggle, {keycode::space, keyflag::option}, KeyCombination{keycode::space, keyflag::control}};
    const auto report = statusReport(RecordingState(), std::nullopt, {.conflicts = {conflict}});
    const auto shown = QJsonDocument::fromJson(report.toUtf8())[u"unavailableHotkeys"_qs][0].toObject();
    EXPECT_EQ(shown.value(u"key"_qs), u"Alt+Space"_qs);
    EXPECT_EQ(shown.value(u"free"_qs), u"Ctrl+Space"_qs);
    EXPECT_TRUE(shown.value(u"message"_qs).toString().contains(u"Ctrl+Space"_qs));
}

TEST_F(CommandsTest, DictateToTheTextAndSayWhatBecameOfIt) {
    EXPECT_TRUE(commands.lastText().isEmpty());
    commands.stop();
    commands.cancel();
    EXPECT_TRUE(becomes(u"idle"_qs)) << "nothing runs that could be stopped";
    commands.start();
    ASSERT_TRUE(becomes(u"recording"_qs));
    EXPECT_EQ(status().value(u"server"_qs), u"localhost"_qs);
    EXPECT_EQ(status().value(u"microphone"_qs), u"Built-in Microphone"_qs);
    ASSERT_TRUE(eventually([&] { return !status().value(u"partialText"_qs).toString().isEmpty(); }));
    const auto before = status().value(u"partialText"_qs).toString();
    commands.start();
    EXPECT_TRUE(status().value(u"partialText"_qs).toString().startsWith(before)) << "it began again";
    commands.stop();
    ASSERT_TRUE(becomes(u"idle"_qs));
    ASSERT_TRUE(eventually([&] { return status().contains(u"lastRun"_qs); }));
    EXPECT_TRUE(mock::transcript().startsWith(commands.lastText().section(u' ', 0, 1)));
    EXPECT_EQ(status().value(u"lastRun"_qs).toObject().value(u"text"_qs), commands.lastText());
    commands.insertAgain();
}

TEST_F(CommandsTest, SettingsOfTheAudioThatIsKeptHoldAtOnce) {
    const auto folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/QuilloSpeech/pending-audio/"_qs;
    ASSERT_TRUE(QDir().mkpath(folder));
    const auto keep = [&](const QString& id) {
        QFile audio(folder + id + u".pcm"_qs);
        EXPECT_TRUE(audio.open(QIODevice::WriteOnly) && audio.resize(1'500'000));
        PendingAudioMetadata metadata;
        metadata.id = id;
        metadata.reason = pendingAudioFiles::unrecognizedReason;
        metadata.createdAt = QDateTime::currentDateTimeUtc();
        metadata.completedAt = metadata.createdAt;
        pendingAudioFiles::writeMetadata(metadata);
        return audio.fileName();
    };
    for (const auto& [key, changed, before] : {std::tuple(u"audioStorageLimitMB"_qs, QVariant(1), QVariant(4096)),
                                               std::tuple(u"keepAudio"_qs, QVariant(false), QVariant(true))}) {
        const auto path = keep(u"kept"_qs);
        settings.setValue(key, changed);
        EXPECT_TRUE(waitUntil([&] { return !QFile::exists(path); })) << key.toStdString();
        settings.setValue(key, before);
    }
}

TEST_F(CommandsTest, ToggleStartsAndStopsAndCancelDiscards) {
    commands.toggle();
    ASSERT_TRUE(becomes(u"recording"_qs));
    commands.cancel();
    ASSERT_TRUE(eventually([&] { return !dictation.effects().isBusy(); }));
    EXPECT_TRUE(commands.lastText().isEmpty());
    EXPECT_EQ(history().count({}), 0);
    commands.toggle();
    ASSERT_TRUE(eventually([&] { return !status().value(u"partialText"_qs).toString().isEmpty(); }));
    commands.toggle();
    ASSERT_TRUE(eventually([&] { return !commands.lastText().isEmpty(); }));
}

TEST_F(CommandsTest, AnAccountIsSignedInToAndLeft) {
    commands.signIn();
    EXPECT_TRUE(commands.account().isBusy);
    commands.cancelSignIn();
    ASSERT_TRUE(eventually([&] { return !commands.account().isBusy; }));
    EXPECT_TRUE(commands.account().message.isEmpty()) << "who cancels has not met an error";
    EXPECT_EQ(signIns, 0);
    commands.registerAccount();
    ASSERT_TRUE(eventually([&] { return commands.account().kind == AccountState::Kind::signedIn; }));
    EXPECT_EQ(commands.account().email, u"ada@example.org"_qs);
    EXPECT_EQ(signIns, 1);
    for (const auto leave : {&Commands::signOut, &Commands::deleteAccount}) {
        commands.signIn();
        ASSERT_TRUE(eventually([&] { return !commands.account().isBusy; }));
        (commands.*leave)();
        ASSERT_TRUE(eventually([&] { return commands.account().kind == AccountState::Kind::anonymous; }))
            << "dictation goes on without the account";
    }
}

TEST_F(CommandsTest, WhatTheHistoryRefusesHasACodeAndWords) {
    using Code = HistoryError::Code;
    const auto unknown = QUuid::createUuid().toString(QUuid::WithoutBraces);
    const auto busy = add(RecordStatus::recording);
    const auto finished = add(RecordStatus::completed);
    auto withoutHistory = parts;
    withoutHistory.history = nullptr;
    ApplicationCommands none(withoutHistory);
    const auto refused = [](const std::function<void()>& command) -> std::optional<Code> {
        try {
            command();
        } catch (const HistoryError& error) {
            EXPECT_NE(LocalizationManager::shared().t(error.message()), error.message().key) << "has no words";
            return error.code();
        }
        return std::nullopt;
    };
    for (const auto& [id, code] :
         {std::pair(unknown, Code::noRecord), std::pair(u"x"_qs, Code::noRecord), std::pair(busy, Code::recordBusy)}) {
        EXPECT_EQ(refused([&] { commands.deleteRecord(id); }), code);
        EXPECT_EQ(refused([&] { commands.retranscribeRecord(id, {}); }), code);
        EXPECT_EQ(refused([&] { commands.copyRecord(id); }), code);
        EXPECT_EQ(refused([&] { none.deleteRecord(id); }), Code::noHistory);
    }
    EXPECT_EQ(refused([&] { commands.retranscribeRecord(finished, {}); }), Code::queueNotReady);
    queue.start();
    EXPECT_EQ(refused([&] { commands.retranscribeRecord(finished, {}); }), Code::audioGone);
    EXPECT_EQ(refused([&] { commands.retranscribeRecord(finished, u"tlh"_qs); }), Code::unknownLanguage);
    commands.deleteRecord(finished);
    EXPECT_FALSE(history().record(QUuid(finished)));
    EXPECT_TRUE(history().record(QUuid(busy)));
}

TEST_F(CommandsTest, ALanguageThatIsNotServedIsSetOnlyWhenForced) {
    const auto isServed = [](const QString& code) { return code == u"en"; };
    try {
        settingsText::set(settings, u"primaryLanguage"_qs, u"de"_qs, isServed);
        ADD_FAILURE() << "it was set";
    } catch (const UserError& error) {
        EXPECT_TRUE(LocalizationManager::shared().t(error.message()).endsWith(u"set --force primaryLanguage de"));
    }
    EXPECT_EQ(settings.primaryLanguage(), u"en"_qs);
    settingsText::set(settings, u"primaryLanguage"_qs, u"de"_qs, {});
    EXPECT_EQ(settings.primaryLanguage(), u"de"_qs);
    settingsText::set(settings, u"primaryLanguage"_qs, u"en"_qs, isServed);
    EXPECT_EQ(settings.primaryLanguage(), u"en"_qs);
}

TEST_F(CommandsTest, AHotkeyThatIsNeededForTypingIsSetOnlyWhenForced) {
    const auto served = [](const QString&) { return true; };
    struct Case {
        const char* key;
        const char* value;
        bool isTaken;
    };
    const Case cases[] = {{"toggleHotkeyKeyCode", "Space", false}, {"hotkeyKeyCode", "A", false},
                          {"hotkeyKeyCode", "999", false},         {"hotkeyKeyCode", "F9", true},
                          {"hotkeyKeyCode", "Ctrl+A", true},       {"hotkeyKeyCode", "54", true}};
    for (const auto& [key, value, isTaken] : cases) {
        SCOPED_TRACE(value);
        const auto set = [&, setting = QString::fromLatin1(key),
                          text = QString::fromLatin1(value)](const std::function<bool(const QString&)>& isServed) {
            settingsText::set(settings, setting, text, isServed);
        };
        if (isTaken) {
            EXPECT_NO_THROW(set(served));
        } else {
            EXPECT_THROW(set(served), UserError);
        }
        EXPECT_NO_THROW(set({}));
        settingsText::set(settings, u"hotkeyKeyCode"_qs, u"Right Super"_qs, {});
        settingsText::set(settings, u"toggleHotkeyKeyCode"_qs, u"Alt+Space"_qs, {});
    }
}

/// A session that says only whether sleep has to wait.
struct SleepWatch final : SessionWatch {
    std::function<void()> leave;
    bool isDelayed = false;
    void start(std::function<void()> onLeft) override { leave = std::move(onLeft); }
    void delaySleep(bool delays) override { isDelayed = delays; }
    [[nodiscard]] bool isAway() const override { return false; }
};

TEST_F(CommandsTest, SleepWaitsForTheDictationThatItEnds) {
    SleepWatch watch;
    const SessionGuard guard(watch, *services.hotkeyService, dictation, [] {});
    commands.start();
    ASSERT_TRUE(becomes(u"recording"_qs));
    EXPECT_TRUE(watch.isDelayed);
    watch.leave();
    EXPECT_EQ(status().value(u"status"_qs), u"processing"_qs);
    EXPECT_TRUE(watch.isDelayed) << "the text is still awaited";
    ASSERT_TRUE(becomes(u"idle"_qs));
    EXPECT_FALSE(watch.isDelayed);
}

TEST(UnavailableCommands, SayWhyAndCanBeEnded) {
    int quits = 0;
    UnavailableCommands commands({u"no such server"_qs}, [&] { ++quits; });
    for (const auto command : {&Commands::start, &Commands::stop, &Commands::toggle, &Commands::cancel,
                               &Commands::insertAgain, &Commands::show, &Commands::signIn, &Commands::registerAccount,
                               &Commands::cancelSignIn, &Commands::signOut, &Commands::deleteAccount})
        EXPECT_THAT([&] { (commands.*command)(); }, testing::ThrowsMessage<std::exception>("no such server"));
    EXPECT_THROW(commands.deleteRecord({}), std::exception);
    EXPECT_EQ(QJsonDocument::fromJson(commands.status().toUtf8()).object().value(u"message"_qs), u"no such server"_qs);
    commands.quit();
    EXPECT_EQ(quits, 1);
}

} // namespace
