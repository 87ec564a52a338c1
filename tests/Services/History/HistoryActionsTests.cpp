#include "Services/History/HistoryActions.h"

#include "Data/DataContainer.h"
#include "Support/Files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace quillo;

namespace {

class FakePlayback final : public AudioPlayback {
public:
    void play(const QString& path, std::stop_token) override { played << path; }
    QStringList played;
};

class HistoryActionsTest : public testing::Test {
protected:
    HistoryActionsTest() { qputenv("XDG_DATA_HOME", QFile::encodeName(folder.path())); }
    ~HistoryActionsTest() override { qunsetenv("XDG_DATA_HOME"); }

    RecordPointer add(const QString& id) {
        auto record = std::make_shared<TranscriptionRecord>();
        record->id = QUuid(id);
        history.insert(record);
        history.save();
        return record;
    }
    template <class Function>
    static std::optional<HistoryError> refusal(Function function) {
        try {
            function();
        } catch (const HistoryError& error) {
            return error;
        }
        return std::nullopt;
    }

    QTemporaryDir folder;
    std::unique_ptr<ModelContainer> container = DataContainer::createInMemory();
    ModelContext& history = container->mainContext();
};

TEST_F(HistoryActionsTest, ARecordIsFoundByAnUnambiguousBeginning) {
    const auto first = u"1a2b3c4d-0000-4000-8000-000000000001"_qs;
    const auto second = u"1a2b0000-0000-4000-8000-000000000002"_qs;
    add(first);
    add(second);
    using namespace historyActions;
    EXPECT_EQ(recordBeginningWith(history, u"1a2b3"_qs)->id, QUuid(first));
    EXPECT_EQ(recordBeginningWith(history, second)->id, QUuid(second));
    const auto ambiguous = refusal([&] { static_cast<void>(recordBeginningWith(history, u"1a2b"_qs)); });
    ASSERT_TRUE(ambiguous);
    EXPECT_EQ(ambiguous->code(), HistoryError::Code::ambiguousId);
    EXPECT_TRUE(ambiguous->message().arguments.at(1).contains(first));
    EXPECT_TRUE(ambiguous->message().arguments.at(1).contains(second));
    const auto unknown = refusal([&] { static_cast<void>(recordBeginningWith(history, u"ff"_qs)); });
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->code(), HistoryError::Code::noRecord);
}

TEST_F(HistoryActionsTest, OnlyKeptAudioIsPlayed) {
    const auto record = add(u"1a2b3c4d-0000-4000-8000-000000000001"_qs);
    FakePlayback playback;
    const auto refused = refusal([&] { historyActions::play(*record, playback); });
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->code(), HistoryError::Code::audioNotKept);
    record->audioRetainedId = u"kept"_qs;
    quillo::test::writeFile(audioPath(u"kept"_qs), QByteArray(3200, '\1'));
    historyActions::play(*record, playback);
    EXPECT_EQ(playback.played, QStringList(audioPath(u"kept"_qs)));
}

} // namespace
