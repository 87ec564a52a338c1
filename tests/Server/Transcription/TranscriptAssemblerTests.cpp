#include "Transcription/TranscriptAssembler.h"

#include <gtest/gtest.h>

namespace quillo::server::test {
namespace {

TEST(TranscriptAssembler, JoinsPiecesIntoWellFormedText) {
    struct Case {
        std::vector<const char*> pieces;
        const char* text;
    };
    const std::vector<Case> cases{
        {{"Hello.", "How are you?"}, "Hello. How are you?"},
        {{"Kind regards", ",\n", "John"}, "Kind regards,\nJohn"},
        {{"One.", "\n\n", "Two."}, "One.\n\nTwo."},
        {{" padded ", "", "  ", "text"}, "padded text"},
        {{"about", ".5"}, "about .5"},
        {{"wait", ". Then"}, "wait. Then"},
        {{"\n", "first"}, "\nfirst"},
    };
    for (const Case& example : cases) {
        TranscriptAssembler assembler;
        for (const char* piece : example.pieces) {
            Transcript transcript;
            transcript.text = piece;
            assembler.append(transcript);
        }
        EXPECT_EQ(assembler.text(), example.text);
    }
}

} // namespace
} // namespace quillo::server::test
