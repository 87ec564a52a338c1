#include "Server/Transcription/Support/Speech.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>
#include <random>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace quillo::server::test {

namespace {

constexpr std::array all{
    Sentence{"XXXX", "i think we should talk to the customer before we make a decision"},
    Sentence{"XXXX", "we need to finish the design review by the end of next week"},
    Sentence{"XXXX", "the team agreed to release the first version in the middle of march"},
    Sentence{"XXXX", "do you want to go to the movies with us tonight"},
    Sentence{"XXXX", "everyone on the team did an excellent job this year"},
    Sentence{"XXXX", "we are looking forward to working with you"},
    Sentence{"XXX.", "please send me the report before the end of the day"},
    Sentence{"XXX.", "it was great to see you at the conference last week"},
    Sentence{"XXX.", "i forgot to bring my laptop charger to the office"},
    Sentence{"XX.X", "she said that the budget was approved this morning"},
    Sentence{"XX.X", "he wants to discuss the contract with the legal department"},
    Sentence{"XX.X", "we will need another engineer to work on this project"},
    Sentence{"XX.X", "i will be out of the office until next tuesday"},
    Sentence{"XX.X", "the price of the house was higher than we expected"},
    Sentence{"X.XX", "let me know if you have any questions about the new schedule"},
    Sentence{".XXX", "remember to buy milk bread and eggs on the way home"},
    Sentence{".XXX", "we have to order more paper for the printer"},
    Sentence{".XXX", "please cancel my appointment for monday morning"},
    Sentence{"XX..", "the package should arrive at your house by wednesday"},
    Sentence{"XX..", "the first item on the agenda is the marketing plan"},
    Sentence{"X.X.", "could you please review the document and send me your comments"},
    Sentence{"X..X", "the weather is supposed to be nice this weekend"},
    Sentence{".X.X", "i am running a few minutes late but i will be there soon"},
    Sentence{".X.X", "the server was down for about two hours last night"},
    Sentence{".XX.", "please make sure that all the windows are closed"},
    Sentence{"..XX", "thank you for your email i will get back to you tomorrow morning"},
    Sentence{"..XX", "the meeting has been moved to three o'clock on thursday afternoon"},
    Sentence{"..XX", "happy birthday i hope you have a wonderful day"},
    Sentence{"X...", "my flight arrives at ten in the morning"},
    Sentence{"X...", "our next meeting will be held in the main conference room"},
    Sentence{"X...", "i have attached the notes from our last phone call"},
    Sentence{".X..", "i would like to book a table for four people on friday night"},
    Sentence{"..X.", "can you call me when you get a chance"},
    Sentence{"..X.", "the new office is much closer to the train station"},
    Sentence{"...X", "please find the invoice attached to this message"},
    Sentence{"...X", "the kids have a soccer game on saturday afternoon"},
    Sentence{"....", "we should add more tests before we ship the product"},
    Sentence{"....", "they are going to paint the kitchen and the living room"},
    Sentence{"....", "the doctor said i should take this medicine twice a day"},
    Sentence{"....", "i need to pick up my car from the garage at five"},
};

std::vector<std::string> wordsOf(std::string_view text) {
    std::string plain;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        plain += std::isalnum(byte) != 0 || character == '\'' ? static_cast<char>(std::tolower(byte)) : ' ';
    }
    std::istringstream stream(plain);
    return {std::istream_iterator<std::string>(stream), {}};
}

} // namespace

std::span<const Sentence> sentences() { return all; }

Samples readSamples(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    size_t offset = 0;
    if (bytes.starts_with("RIFF")) {
        offset = bytes.find("data");
        if (offset == std::string::npos)
            throw std::runtime_error(file.string() + " is not a WAV file");
        offset += 8;
    }
    if (bytes.size() < offset + 2)
        throw std::runtime_error(file.string() + " holds no sound");
    Samples samples((bytes.size() - offset) / 2);
    std::memcpy(samples.data(), bytes.data() + offset, samples.size() * 2);
    return samples;
}

Samples noise(double seconds) {
    std::mt19937 generator(1); // NOLINT: the same noise on every run
    std::normal_distribution<double> level(0, 5);
    Samples samples(static_cast<size_t>(seconds * 16000));
    std::ranges::generate(samples, [&] { return static_cast<int16_t>(level(generator)); });
    return samples;
}

Samples buzz(double seconds, int amplitude) {
    Samples samples = noise(seconds);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(samples[i] + (i % 64 < 32 ? amplitude : -amplitude));
    return samples;
}

Samples speak(const std::string& voice, std::string_view text) {
    std::string file = (std::filesystem::temp_directory_path() / "speech-XXXXXX").string();
    const int descriptor = mkstemp(file.data());
    if (descriptor < 0)
        throw std::runtime_error("no temporary file for the synthesiser");
    close(descriptor);
    const std::string command = "flite -voice " + voice + " -t \"" + std::string(text) + "\" -o " + file;
    const int status = std::system(command.c_str()); // NOLINT: the texts are our own
    Samples speech = status == 0 ? readSamples(file) : Samples();
    std::filesystem::remove(file);
    if (speech.empty())
        throw std::runtime_error("flite could not speak: install the package flite");
    const auto loudness = [](int16_t sample) { return std::abs(static_cast<int>(sample)); };
    const int peak = loudness(*std::ranges::max_element(speech, {}, loudness));
    for (int16_t& sample : speech)
        sample = static_cast<int16_t>(sample * 16384 / std::max(peak, 1));
    Samples result = noise(1.8 + static_cast<double>(speech.size()) / 16000);
    for (size_t i = 0; i < speech.size(); ++i)
        result[16000 + i] = static_cast<int16_t>(result[16000 + i] + speech[i]);
    return result;
}

size_t wordCount(std::string_view text) { return wordsOf(text).size(); }

size_t wordErrors(std::string_view reference, std::string_view hypothesis) {
    const auto expected = wordsOf(reference);
    const auto heard = wordsOf(hypothesis);
    std::vector<size_t> row(heard.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= expected.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= heard.size(); ++j) {
            const size_t substitution = diagonal + (expected[i - 1] == heard[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({substitution, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

} // namespace quillo::server::test
