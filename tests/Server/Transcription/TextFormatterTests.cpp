#include "Transcription/Formatting/TextFormatter.h"

#include <gtest/gtest.h>

#include <sstream>

namespace quillo::server::test {
namespace {

std::vector<Word> wordsOf(const std::string& text) {
    std::vector<Word> words;
    std::istringstream stream(text);
    for (std::string word; stream >> word;)
        words.push_back({word, static_cast<double>(words.size()), static_cast<double>(words.size()) + 0.9, 1});
    return words;
}

std::string write(const std::string& spoken) {
    return TextFormatter().commit(wordsOf(spoken), TextFormatter::Ending::sentence).text;
}

struct Case {
    const char* spoken;
    const char* written;
};

class Formats : public testing::TestWithParam<Case> {};

TEST_P(Formats, AsAPersonWould) { EXPECT_EQ(write(GetParam().spoken), GetParam().written) << GetParam().spoken; }

INSTANTIATE_TEST_SUITE_P(
    Marks, Formats,
    testing::Values(Case{"hello ,comma world .period", "Hello, world."},
                    Case{"really ?question-mark yes !exclamation-point", "Really? Yes!"},
                    Case{"kind regards ,comma \\new-line john", "Kind regards,\nJohn"},
                    Case{"one thing .period \\new-paragraph another thing", "One thing.\n\nAnother thing"},
                    Case{"he said \"open-quote come in \"close-quote .period", "He said \"come in\"."},
                    Case{"send the report period", "Send the report."},
                    Case{"by the end of the day period", "By the end of the day."},
                    Case{"in a two week period", "In a two week period."},
                    Case{"it took a long time period", "It took a long time period."},
                    Case{"for a short period", "For a short period."}, Case{"new paragraph", "\n\n"},
                    Case{"the period of time was long", "The period of time was long."},
                    Case{"see you at two p m .period", "See you at 2 p.m."}));

INSTANTIATE_TEST_SUITE_P(Sentences, Formats,
                         testing::Values(Case{"i think i'm late", "I think I'm late."},
                                         Case{"we meet mr smith on monday in march",
                                              "We meet Mr. Smith on Monday in March."},
                                         Case{"they march in may and you may go", "They march in May and you may go."},
                                         Case{"do you want to go", "Do you want to go?"},
                                         Case{"when will it arrive", "When will it arrive?"},
                                         Case{"when i get home i will call", "When I get home I will call."},
                                         Case{"do it now", "Do it now."}, Case{"what a nice day", "What a nice day."},
                                         Case{"the pdf is in english", "The PDF is in English."}, Case{"", ""}));

INSTANTIATE_TEST_SUITE_P(
    Numbers, Formats,
    testing::Values(
        Case{"i have two or three ideas", "I have two or three ideas."},
        Case{"i have twenty five ideas", "I have 25 ideas."}, Case{"one hundred and forty two people", "142 people."},
        Case{"a hundred people and a hundred and fifty chairs", "A hundred people and 150 chairs."},
        Case{"several hundred people", "Several hundred people."},
        Case{"twelve thousand three hundred and four", "12,304."},
        Case{"two million three hundred thousand", "2,300,000."}, Case{"five million people", "5 million people."},
        Case{"between one hundred and two hundred", "Between one hundred and two hundred."},
        Case{"between twenty and thirty", "Between 20 and 30."}, Case{"twenty five dollars and fifty cents", "$25.50."},
        Case{"five million dollars", "$5 million."},
        Case{"it costs three euros and you pay", "It costs €3 and you pay."}, Case{"three point five percent", "3.5%."},
        Case{"at this point five people left", "At this point five people left."}, Case{"ten percent", "10%."},
        Case{"call five five five one two three four", "Call 555-1234."},
        Case{"the code is four oh seven", "The code is 407."}, Case{"nineteen eighty four", "1984."},
        Case{"in twenty twenty six", "In 2026."}, Case{"five ten", "Five ten."},
        Case{"on march third two thousand twenty six", "On March 3, 2026."}, Case{"on may twenty first", "On May 21."},
        Case{"you may first ask", "You may first ask."}, Case{"the twenty third floor", "The 23rd floor."},
        Case{"the third floor", "The third floor."}, Case{"at two thirty pm", "At 2:30 p.m."},
        Case{"at ten oh five a m", "At 10:05 a.m."}, Case{"at five fifteen", "At 5:15."},
        Case{"moved to three o'clock", "Moved to 3 o'clock."}, Case{"which one am i", "Which one am I."},
        Case{"no one and nothing", "No one and nothing."}, Case{"zero", "Zero."}, Case{"hundred", "Hundred."}));

TEST(TextFormatter, CarriesASentenceAcrossPieces) {
    TextFormatter formatter;
    using Ending = TextFormatter::Ending;
    EXPECT_EQ(formatter.preview(wordsOf("do")).text, "Do");
    EXPECT_EQ(formatter.commit(wordsOf("do"), Ending::continues).text, "Do");
    EXPECT_EQ(formatter.preview(wordsOf("you agree")).text, "you agree");
    EXPECT_EQ(formatter.commit(wordsOf("you agree"), Ending::sentence).text, "you agree?");
    EXPECT_EQ(formatter.commit(wordsOf(",comma yes"), Ending::sentence).text, "Yes.");
    EXPECT_EQ(formatter.commit(wordsOf("fine .period"), Ending::continues).text, "Fine.");
    EXPECT_EQ(formatter.commit(wordsOf("no mark is added"), Ending::sentence).text, "No mark is added");
}

TEST(TextFormatter, KeepsTheTimesOfWhatWasSpoken) {
    const auto written =
        TextFormatter().commit(wordsOf("pay twenty five dollars now ,comma please"), TextFormatter::Ending::sentence);
    ASSERT_EQ(written.text, "Pay $25 now, please");
    ASSERT_EQ(written.words.size(), 4U);
    EXPECT_EQ(written.words[1].text, "$25");
    EXPECT_EQ(written.words[1].start, 1);
    EXPECT_EQ(written.words[1].end, 3.9);
    EXPECT_EQ(written.words[2].text, "now,");
}

} // namespace
} // namespace quillo::server::test
