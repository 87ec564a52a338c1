#include "Server/Transcription/Support/CollectingListener.h"
#include "Server/Transcription/Support/Speech.h"
#include "Server/Transcription/Support/StandInService.h"
#include "Transcription/Http/HttpRecogniser.h"

#include <gmock/gmock.h>

#include <cstring>

namespace quillo::server::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Request = StandInService::Request;
using Reply = StandInService::Reply;

constexpr const char* key = "sk-secret-key";

HttpRecogniserSettings settingsFor(const StandInService& service) {
    HttpRecogniserSettings settings;
    settings.url = service.url();
    settings.key = key;
    settings.model = "whisper-1";
    settings.partialInterval = {};
    settings.retryDelay = std::chrono::milliseconds(1);
    return settings;
}

/// An open session and what it says.
struct Dictation {
    explicit Dictation(Recogniser& recogniser, const std::vector<std::string>& languages = {})
        : session(recogniser.open({languages, false}, listener)) {}
    void push(const std::vector<Samples>& pieces) const {
        for (const Samples& piece : pieces)
            session->push(piece);
    }
    /// Ends it and returns its text.
    std::string finish() const {
        session->finish();
        return listener->awaitText();
    }

    std::shared_ptr<CollectingListener> listener = std::make_shared<CollectingListener>();
    std::unique_ptr<RecognitionSession> session;
};

std::string recognise(Recogniser& recogniser, const std::vector<Samples>& pieces,
                      const std::vector<std::string>& languages = {}) {
    const Dictation dictation(recogniser, languages);
    dictation.push(pieces);
    return dictation.finish();
}

Reply text(const std::string& said) { return {200, R"({"text":")" + said + "\"}", {}, false}; }
const Reply never{200, {}, {}, true};

TEST(HttpRecogniser, SendsEachUtteranceAsAFileAndJoinsTheAnswers) {
    std::vector<Request> requests;
    StandInService service([&](const Request& request) -> Reply {
        requests.push_back(request);
        return text(" Piece " + std::to_string(request.number) + ".");
    });
    const auto recogniser = makeHttpRecogniser(settingsFor(service));
    EXPECT_EQ(recogniser->name(), "whisper-1");
    EXPECT_EQ(recognise(*recogniser, {noise(1), buzz(1), noise(2), buzz(0.5)}, {"de"}), "Piece 1. Piece 2.");
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_THAT(requests[0].head, AllOf(StartsWith("POST /v1/audio/transcriptions HTTP/1.1"),
                                        HasSubstr("Authorization: Bearer sk-secret-key")));
    EXPECT_THAT(requests[0].body, AllOf(HasSubstr("name=\"model\"\r\n\r\nwhisper-1"),
                                        HasSubstr("name=\"language\"\r\n\r\nde"), HasSubstr("audio/wav")));
    const size_t wav = requests[0].body.find("RIFF");
    ASSERT_NE(wav, std::string::npos);
    uint32_t bytes = 0;
    std::memcpy(&bytes, requests[0].body.data() + wav + 40, 4);
    EXPECT_NEAR(bytes / 32000.0, 0.35 + 1 + 0.6, 0.1); // pre-roll, speech, the pause that ended it
}

TEST(HttpRecogniser, RepliesWithTimesOfTheSession) {
    StandInService service([](const Request&) -> Reply {
        return {200, R"({"text":"Hi","words":[{"word":"Hi","start":0.4,"end":0.9}]})", {}, false};
    });
    const auto recogniser = makeHttpRecogniser(settingsFor(service));
    const Dictation dictation(*recogniser);
    dictation.push({noise(3), buzz(1)});
    ASSERT_EQ(dictation.finish(), "Hi");
    EXPECT_NEAR(dictation.listener->finals().front().words.front().start, 3.05, 0.1);
    EXPECT_NEAR(dictation.listener->finals().front().end, 4, 0.05);
}

TEST(HttpRecogniser, ShowsWhatIsBeingSpoken) {
    StandInService service(
        [](const Request& request) { return text("Bytes " + std::to_string(request.body.size() / 10000)); });
    HttpRecogniserSettings settings = settingsFor(service);
    settings.partialInterval = std::chrono::milliseconds(500);
    const auto recogniser = makeHttpRecogniser(settings);
    const Dictation dictation(*recogniser);
    dictation.push({noise(1), buzz(1)});
    ASSERT_TRUE(dictation.listener->awaitPartials(1));
    dictation.push({buzz(1)});
    ASSERT_TRUE(dictation.listener->awaitPartials(2));
    EXPECT_TRUE(dictation.listener->finals().empty());
    EXPECT_THAT(dictation.finish(), StartsWith("Bytes "));
    EXPECT_NE(dictation.listener->partials()[0].text, dictation.listener->partials()[1].text);
}

TEST(HttpRecogniser, CancelsAStalePartialInsteadOfWaitingForIt) {
    StandInService service([](const Request& request) { return request.number == 1 ? never : text("Whole"); });
    HttpRecogniserSettings settings = settingsFor(service);
    settings.partialInterval = std::chrono::milliseconds(500);
    const auto recogniser = makeHttpRecogniser(settings);
    const Dictation dictation(*recogniser);
    dictation.push({noise(1), buzz(1)});
    ASSERT_TRUE(service.awaitRequests(1));
    dictation.push({noise(2)});
    EXPECT_EQ(dictation.finish(), "Whole");
}

TEST(HttpRecogniser, AsksForLessWhenTheServiceRefusesDetails) {
    StandInService service([](const Request& request) -> Reply {
        const bool detailed = request.body.find("verbose_json") != std::string::npos;
        return detailed ? Reply{400, R"({"error":"response_format"})", {}, false} : text("ok");
    });
    const auto recogniser = makeHttpRecogniser(settingsFor(service));
    EXPECT_EQ(recognise(*recogniser, {buzz(1)}), "ok");
    EXPECT_EQ(service.requests(), 3);
    EXPECT_EQ(recognise(*recogniser, {buzz(1)}), "ok");
    EXPECT_EQ(service.requests(), 4); // and remembers it
}

TEST(HttpRecogniser, TriesAgainWhatMayPass) {
    StandInService service([](const Request& request) -> Reply {
        if (request.number == 1)
            return {503, "busy", {}, false};
        return request.number == 2 ? Reply{429, "{}", "Retry-After: 0\r\n", false} : text("at last");
    });
    const auto recogniser = makeHttpRecogniser(settingsFor(service));
    EXPECT_EQ(recognise(*recogniser, {buzz(1)}), "at last");
    EXPECT_EQ(service.requests(), 3);
}

struct FailureCase {
    const char* name;
    Reply reply;
    const char* message;
    int requests;
};

TEST(HttpRecogniser, FailuresAreExplainedWithoutTheKey) {
    const FailureCase cases[] = {
        {"key",
         {401, R"({"error":{"message":"Incorrect key: sk-secret-key"}})"},
         "unavailable: The transcription service",
         1},
        {"forbidden", {403}, "check the key", 1},
        {"path", {404, R"({"detail":"Not Found"})"}, "(\"Not Found\"): check --recogniser-url, --recogniser-path", 1},
        {"large", {413}, "failed: refused: ", 1},
        {"echo", {500, R"({"error":"sk-secret-key"})"}, "status 500: try again later", 3},
        {"limit", {429, {}, "Retry-After: 120\r\n"}, "try again in 120 seconds", 1},
        {"down", {503, "down"}, "status 503", 3},
        {"bad", {418, R"({"error":"teapot"})"}, "refused the request with status 418 (\"teapot\")", 1},
        {"html", {200, "<html>Welcome</html>"}, "did not answer with a transcription", 1},
        {"enormous", {200, std::string(100000, ' ')}, "more than a transcription", 1},
        {"redirect",
         {307, {}, "Location: http://evil.example/take\r\n"},
         "redirects to http://evil.example/take, which is not followed",
         1},
        {"timeout", {200, "", {}, true}, "did not answer in time", 1}};
    for (const auto& failure : cases) {
        SCOPED_TRACE(failure.name);
        StandInService service([&](const Request&) { return failure.reply; });
        HttpRecogniserSettings settings = settingsFor(service);
        settings.maxResponseBytes = 4096;
        if (failure.reply.never)
            settings.requestTimeout = std::chrono::milliseconds(50);
        const auto recogniser = makeHttpRecogniser(settings);
        const std::string text = recognise(*recogniser, {buzz(0.5)});
        EXPECT_THAT(text, AllOf(HasSubstr(failure.message), HasSubstr("http"), Not(HasSubstr(key))));
        EXPECT_EQ(service.requests(), failure.requests);
    }
}

TEST(HttpRecogniser, SaysThatNothingListens) {
    HttpRecogniserSettings settings;
    {
        const StandInService gone([](const Request&) { return Reply(); });
        settings = settingsFor(gone);
    }
    EXPECT_THAT(recognise(*makeHttpRecogniser(settings), {buzz(1)}),
                StartsWith("failed: unavailable: The transcription service at " + settings.url));
}

TEST(HttpRecogniser, AbandonsARequestWithItsSession) {
    StandInService service([](const Request&) { return never; });
    auto recogniser = makeHttpRecogniser(settingsFor(service));
    Dictation dictation(*recogniser);
    dictation.push({buzz(1)});
    dictation.session->finish();
    dictation.session.reset();
    recogniser.reset();
    EXPECT_TRUE(dictation.listener->finals().empty());
}

TEST(HttpRecogniser, HoldsBackAClientThatIsFasterThanTheService) {
    StandInService service([](const Request&) { return never; });
    const auto recogniser = makeHttpRecogniser(settingsFor(service));
    const Dictation dictation(*recogniser);
    for (int i = 0; i < 6; ++i)
        dictation.push({buzz(1), noise(2)});
    EXPECT_GT(dictation.session->backlogSeconds(), 5);
}

TEST(HttpRecogniser, RefusesSettingsThatCannotWork) {
    HttpRecogniserSettings settings;
    for (const char* url : {"", "localhost:8080", "ftp://host"}) {
        settings.url = url;
        EXPECT_THROW(makeHttpRecogniser(settings), RecogniserUnavailable) << url;
    }
    settings.url = "https://host";
    settings.key = "a\r\nHost: b";
    EXPECT_THROW(makeHttpRecogniser(settings), RecogniserUnavailable);
    settings.key = "";
    settings.authorityFile = "/nowhere.pem";
    EXPECT_THROW(makeHttpRecogniser(settings), RecogniserUnavailable);
}

TEST(HttpRecogniser, NamesTheLimitOfSessions) {
    StandInService service([](const Request&) { return Reply(); });
    HttpRecogniserSettings settings = settingsFor(service);
    settings.maxSessions = 1;
    const auto recogniser = makeHttpRecogniser(settings);
    const Dictation first(*recogniser);
    EXPECT_THROW(Dictation{*recogniser}, RecogniserUnavailable);
    EXPECT_EQ(first.finish(), "");
    EXPECT_NO_THROW(Dictation{*recogniser});
}

} // namespace
} // namespace quillo::server::test
