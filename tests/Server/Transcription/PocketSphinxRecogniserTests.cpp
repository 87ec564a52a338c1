#include "Server/Transcription/Support/CollectingListener.h"
#include "Server/Transcription/Support/Speech.h"
#include "Transcription/PocketSphinx/PocketSphinxRecogniser.h"

#include <gmock/gmock.h>

#include <atomic>
#include <map>

namespace quillo::server::test {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

PocketSphinxSettings plainWords() {
    PocketSphinxSettings settings;
    settings.formatText = false;
    return settings;
}

std::string recognise(Recogniser& recogniser, const std::vector<Samples>& pieces, size_t chunk = 1600) {
    const auto listener = std::make_shared<CollectingListener>();
    const auto session = recogniser.open({}, listener);
    for (const Samples& piece : pieces)
        for (size_t at = 0; at < piece.size(); at += chunk)
            session->push(std::span(piece).subspan(at, std::min(chunk, piece.size() - at)));
    session->finish();
    return listener->awaitText();
}

std::string_view sentence(size_t index) { return sentences()[index].text; }

/// Every fourth sentence, so that the parts can run side by side.
class SpeechPart : public testing::TestWithParam<size_t> {};
INSTANTIATE_TEST_SUITE_P(PocketSphinxRecogniser, SpeechPart, testing::Range(size_t{0}, size_t{4}));

TEST_P(SpeechPart, IsUnderstood) {
    const auto recogniser = makePocketSphinxRecogniser(plainWords());
    size_t errors = 0;
    size_t words = 0;
    for (size_t index = GetParam(); index < sentences().size(); index += 4) {
        const Sentence& example = sentences()[index];
        const std::string text = recognise(*recogniser, {speak("rms", example.text)});
        if (example.understood == "XXXX") {
            EXPECT_EQ(text, example.text);
            EXPECT_EQ(recognise(*recogniser, {speak("slt", example.text)}), example.text);
        }
        errors += wordErrors(example.text, text);
        words += wordCount(example.text);
    }
    const double rate = 100.0 * static_cast<double>(errors) / static_cast<double>(words);
    RecordProperty("word_error_rate_percent", std::to_string(rate));
    EXPECT_LT(rate, 15);
}

TEST(PocketSphinxRecogniser, WritesSentencesWithDictatedAndAddedMarks) {
    const auto recogniser = makePocketSphinxRecogniser({});
    const std::map<std::string, std::string> written{
        {"do you want to go to the movies with us tonight", "Do you want to go to the movies with us tonight?"},
        {"everyone on the team did an excellent job this year exclamation point",
         "Everyone on the team did an excellent job this year!"},
        {"i forgot to bring my laptop charger to the office period",
         "I forgot to bring my laptop charger to the office."},
        {"this is a test of the dictation system period", "This is a test of the dictation system."},
        {"kind regards comma new line john", "Kind regards,\nJohn"},
    };
    for (const auto& [spoken, text] : written)
        EXPECT_EQ(recognise(*recogniser, {speak("rms", spoken)}), text);
    EXPECT_EQ(recognise(*recogniser, {speak("rms", sentence(0)), noise(1.5), speak("rms", sentence(1))}),
              "I think we should talk to the customer before we make a decision. "
              "We need to finish the design review by the end of next week.");
}

TEST(PocketSphinxRecogniser, GivesTheSameTextHoweverTheAudioIsCut) {
    const auto recogniser = makePocketSphinxRecogniser({});
    const std::vector<Samples> audio{speak("slt", sentence(7)), speak("rms", sentence(2))};
    const std::string text = recognise(*recogniser, audio);
    EXPECT_THAT(text, HasSubstr("the first version"));
    for (const size_t chunk : {1UL, 4801UL, 1000000UL})
        EXPECT_EQ(recognise(*recogniser, audio, chunk), text) << chunk;
}

TEST(PocketSphinxRecogniser, RemembersNothingOfEarlierSessions) {
    PocketSphinxSettings settings = plainWords();
    settings.maxDecoders = 1; // every session gets the same decoder
    const auto recogniser = makePocketSphinxRecogniser(settings);
    const Samples first = speak("slt", sentences().back().text);
    const std::string fresh = recognise(*recogniser, {first});
    recognise(*recogniser, {speak("kal16", sentence(4)), noise(3)});
    EXPECT_EQ(recognise(*recogniser, {first}), fresh);
}

TEST(PocketSphinxRecogniser, HearsNothingInSilence) {
    const auto recogniser = makePocketSphinxRecogniser({});
    EXPECT_EQ(recognise(*recogniser, {Samples(16000 * 3), noise(3)}), "");
    EXPECT_EQ(recognise(*recogniser, {}), "");
}

TEST(PocketSphinxRecogniser, TellsWordTimesWithinTheSession) {
    const auto recogniser = makePocketSphinxRecogniser(plainWords());
    const auto listener = std::make_shared<CollectingListener>();
    const auto session = recogniser->open({}, listener);
    const Samples lead = noise(2);
    const Samples speech = speak("rms", sentence(0));
    session->push(lead);
    session->push(speech);
    session->finish();
    ASSERT_EQ(listener->awaitText(), sentence(0));
    const std::vector<Word> words = listener->finals().front().words;
    ASSERT_EQ(words.size(), wordCount(sentence(0)));
    EXPECT_NEAR(words.front().start, 3, 0.3);
    EXPECT_NEAR(words.back().end, static_cast<double>(lead.size() + speech.size()) / 16000 - 0.8, 0.3);
    for (size_t i = 1; i < words.size(); ++i)
        EXPECT_LE(words[i - 1].end, words[i].start + 0.001);
    EXPECT_GT(listener->partials().size(), 5U);
    EXPECT_EQ(session->backlogSeconds(), 0);
}

TEST(PocketSphinxRecogniser, CutsSpeechWithoutPausesAndLosesNoWord) {
    const auto recogniser = makePocketSphinxRecogniser(plainWords());
    const Samples spoken = speak("rms", sentence(2));
    const Samples bare(spoken.begin() + 16000, spoken.end() - 12800);
    std::vector<Samples> audio(12, bare); // over 40 s
    audio.push_back(noise(1));
    std::string expected;
    for (size_t i = 0; i < audio.size() - 1; ++i)
        expected += std::string(sentence(2)) + " ";
    const std::string text = recognise(*recogniser, audio);
    EXPECT_LE(wordErrors(expected, text), wordCount(expected) / 8) << text;
}

TEST(PocketSphinxRecogniser, StopsCallingWhenTheSessionIsDestroyed) {
    class Watching final : public RecognitionListener {
    public:
        std::atomic<bool> destroyed = false;
        std::atomic<int> late = 0;
        void onPartial(const Transcript& /*transcript*/) override { count(); }
        void onFinal(const Transcript& /*transcript*/) override { count(); }
        void onFinished() override { count(); }
        void onFailed(bool /*unavailable*/, const std::string& /*message*/) override { count(); }

    private:
        void count() { late += destroyed ? 1 : 0; }
    };
    const auto recogniser = makePocketSphinxRecogniser({});
    const Samples speech = speak("rms", sentence(1));
    std::vector<std::shared_ptr<Watching>> watching;
    for (int round = 0; round < 6; ++round) {
        const auto progress = std::make_shared<CollectingListener>();
        const auto beside = recogniser->open({}, progress);
        beside->push(speech);
        watching.push_back(std::make_shared<Watching>());
        auto session = recogniser->open({}, watching.back());
        session->push(speech);
        session->finish();
        EXPECT_TRUE(progress->awaitPartials(static_cast<size_t>(round) + 1));
        session.reset();
        watching.back()->destroyed = true;
    }
    EXPECT_EQ(recognise(*recogniser, {speech}).empty(), false);
    for (const auto& watcher : watching)
        EXPECT_EQ(watcher->late, 0);
}

TEST(PocketSphinxRecogniser, MayBeDestroyedBeforeItsSessions) {
    auto recogniser = makePocketSphinxRecogniser({});
    const auto listener = std::make_shared<CollectingListener>();
    const auto session = recogniser->open({}, listener);
    session->push(speak("rms", sentence(1)));
    ASSERT_TRUE(listener->awaitPartials(1));
    recogniser.reset();
    session->push(noise(1));
    session->finish();
    EXPECT_TRUE(listener->finals().empty());
}

TEST(PocketSphinxRecogniser, ServesSessionsSideBySide) {
    const auto recogniser = makePocketSphinxRecogniser(plainWords());
    std::vector<std::shared_ptr<CollectingListener>> listeners;
    std::vector<std::unique_ptr<RecognitionSession>> sessions;
    for (size_t i = 0; i < 4; ++i) {
        listeners.push_back(std::make_shared<CollectingListener>());
        sessions.push_back(recogniser->open({}, listeners.back()));
    }
    for (size_t i = 0; i < sessions.size(); ++i) {
        sessions[i]->push(speak("rms", sentence(i)));
        sessions[i]->finish();
    }
    for (size_t i = 0; i < sessions.size(); ++i)
        EXPECT_EQ(listeners[i]->awaitText(), sentence(i));
}

TEST(PocketSphinxRecogniser, NamesTheLimitAndFreesAPlaceWhenASessionEnds) {
    PocketSphinxSettings settings;
    settings.maxDecoders = 1;
    const auto recogniser = makePocketSphinxRecogniser(settings);
    const auto listener = std::make_shared<CollectingListener>();
    const auto session = recogniser->open({}, listener);
    const auto another = [&] { recogniser->open({}, std::make_shared<CollectingListener>()); };
    EXPECT_THAT(another, ThrowsMessage<RecogniserUnavailable>(HasSubstr("All 1 sessions")));
    session->finish();
    EXPECT_EQ(listener->awaitText(), "");
    EXPECT_NO_THROW(another());
}

TEST(PocketSphinxRecogniser, KnowsEnglishOnly) {
    const auto recogniser = makePocketSphinxRecogniser({});
    const auto listener = std::make_shared<CollectingListener>();
    for (const std::vector<std::string>& languages :
         {std::vector<std::string>{"en"}, {"auto"}, {""}, {"en-GB"}, {"de", "en"}, {}})
        EXPECT_NO_THROW(recogniser->open({languages, false}, listener));
    const auto german = [&] { recogniser->open({{"de"}, false}, listener); };
    EXPECT_THAT(german, ThrowsMessage<RecogniserUnavailable>(
                            testing::AllOf(HasSubstr("\"de\""), HasSubstr("--recogniser-url"))));
}

TEST(PocketSphinxRecogniser, NamesThePackageOfAMissingModel) {
    PocketSphinxSettings settings;
    settings.modelFolder = "/nowhere";
    EXPECT_THAT([&] { makePocketSphinxRecogniser(settings); },
                ThrowsMessage<RecogniserUnavailable>(
                    testing::AllOf(HasSubstr("/nowhere/en-us"), HasSubstr("pocketsphinx-en-us"))));
}

} // namespace
} // namespace quillo::server::test
