#include "Transcription/Http/TranscriptionResponse.h"

#include <gtest/gtest.h>

namespace quillo::server::test {
namespace {

TEST(TranscriptionResponse, ReadsEveryDialect) {
    const auto plain = readTranscription(R"({"text": " Hello there. \n"})", 0);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->text, "Hello there.");
    EXPECT_TRUE(plain->words.empty());

    const auto topLevel = readTranscription(
        R"({"text":"a b","language":"english","duration":"2.5","words":[{"word":"a","start":0.5,"end":"1"},
            {"word":"b","start":-1,"end":2},null,3]})",
        10);
    ASSERT_TRUE(topLevel);
    ASSERT_EQ(topLevel->words.size(), 1U); // the other has no time
    EXPECT_EQ(topLevel->words[0].start, 10.5);
    EXPECT_EQ(topLevel->words[0].end, 11);
    EXPECT_EQ(topLevel->language, "");

    const auto tokens = readTranscription(
        R"({"text":"Quillo works","language":"en","segments":[{"avg_logprob":0,"words":[
            {"word":" Qu","start":0,"end":0.2,"probability":0.5},{"word":"illo","start":0.2,"end":0.4},
            {"word":" works","start":0.4,"end":0.9}]}]})",
        0);
    ASSERT_TRUE(tokens);
    ASSERT_EQ(tokens->words.size(), 2U);
    EXPECT_EQ(tokens->words[0].text, "Quillo");
    EXPECT_EQ(tokens->words[0].end, 0.4);
    EXPECT_EQ(tokens->words[0].confidence, 0.5);
    EXPECT_EQ(tokens->language, "en");

    EXPECT_TRUE(readTranscription(R"({"text":"x","words":null,"segments":{}})", 0));
}

TEST(TranscriptionResponse, TakesNothingElseForATranscription) {
    for (const char* body : {"", "<html>", "[]", "null", R"({"text":5})", R"({"error":"no"})", R"({"text":"cut)"})
        EXPECT_FALSE(readTranscription(body, 0)) << body;
}

TEST(TranscriptionResponse, QuotesAServicesErrorBounded) {
    EXPECT_EQ(readServiceError(R"({"error":{"message":"bad model"}})"), "bad model");
    EXPECT_EQ(readServiceError(R"({"error":"busy"})"), "busy");
    EXPECT_EQ(readServiceError("<html>"), "");
    std::string umlauts = R"({"detail":"x)";
    for (int i = 0; i < 150; ++i)
        umlauts += "ü";
    EXPECT_EQ(readServiceError(umlauts + "\"}").size(), 199U); // not through the middle of a letter
}

} // namespace
} // namespace quillo::server::test
