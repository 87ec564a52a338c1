#include "Transcription/PocketSphinx/Decoder.h"

#include "SphinxLibrary/LoadMutex.h"
#include "Transcription/EnergyVad.h"
#include "Transcription/SpokenMarks.h"

// The guards against C++ in these headers are incomplete.
extern "C" {
#include <pocketsphinx.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/err.h>
#include <sphinxbase/fe.h>
#include <sphinxbase/feat.h>
#include <sphinxbase/logmath.h>
#include <sphinxbase/ngram_model.h>
}

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace quillo::server {

namespace {

constexpr double frameSeconds = 0.01;
/// The weight, in frames of speech, of the model's own channel estimate when the speaker's first second is added.
constexpr float priorFrames = 100;
constexpr const char* remedy = "install the package pocketsphinx-en-us or name the folder of the model";

void requireReadable(const std::filesystem::path& file) {
    if (access(file.c_str(), R_OK) != 0)
        throw RecogniserUnavailable("The recogniser's model is incomplete: cannot read " + file.string() + "; " +
                                    remedy);
}

/// A file in memory, for a library that accepts only paths; removed automatically.
class MemoryFile {
public:
    MemoryFile(const char* name, const std::string& content) : m_descriptor(memfd_create(name, MFD_CLOEXEC)) {
        size_t written = 0;
        while (m_descriptor >= 0 && written < content.size()) {
            const ssize_t count = write(m_descriptor, content.data() + written, content.size() - written);
            if (count <= 0)
                break;
            written += static_cast<size_t>(count);
        }
        if (written < content.size()) {
            close(m_descriptor);
            throw RecogniserUnavailable("The recogniser ran out of memory while loading its dictionary");
        }
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(m_descriptor); }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

std::string dictionaryWithMarks(const std::filesystem::path& dictionary) {
    std::ifstream file(dictionary, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!text.str().ends_with('\n'))
        text << '\n';
    for (const SpokenMark& mark : spokenMarks)
        text << mark.token << ' ' << mark.pronunciation << '\n';
    return text.str();
}

/// Unigrams of the marks, in ARPA format (Doug Paul's, as SRILM's ngram-format(5) describes it).
std::string languageModelOfMarks() {
    std::ostringstream text;
    text << "\\data\\\nngram 1=" << spokenMarks.size() + 2 << "\nngram 2=1\n\n\\1-grams:\n-99 <s> 0\n-1 </s> 0\n";
    for (const SpokenMark& mark : spokenMarks)
        text << "-3 " << mark.token << " 0\n";
    text << "\n\\2-grams:\n-1 <s> </s>\n\n\\end\\\n";
    return text.str();
}

struct FreeConfig {
    void operator()(cmd_ln_t* config) const { cmd_ln_free_r(config); }
};
struct FreeDecoder {
    void operator()(ps_decoder_t* decoder) const { ps_free(decoder); }
};
struct FreeFrontEnd {
    void operator()(fe_t* frontEnd) const { fe_free(frontEnd); }
};
struct FreeModel {
    void operator()(ngram_model_t* model) const { ngram_model_free(model); }
};
using Config = std::unique_ptr<cmd_ln_t, FreeConfig>;
using Model = std::unique_ptr<ngram_model_t, FreeModel>;

std::string withoutVariant(std::string word) {
    if (const auto open = word.find('('); open != std::string::npos && open > 0 && word.ends_with(')'))
        word.resize(open);
    return word;
}

bool isFiller(const std::string& word) {
    return word.empty() || word.front() == '<' || word.front() == '[' || word.starts_with("++");
}

} // namespace

ModelFiles ModelFiles::in(const std::filesystem::path& folder, bool removeNoise) {
    ModelFiles files{folder / "en-us", folder / "en-us.lm.bin", folder / "cmudict-en-us.dict", removeNoise};
    for (const char* part :
         {"mdef", "means", "variances", "transition_matrices", "sendump", "feat.params", "noisedict"})
        requireReadable(files.acoustic / part);
    requireReadable(files.languageModel);
    requireReadable(files.dictionary);
    return files;
}

struct Decoder::Library {
    std::unique_ptr<ps_decoder_t, FreeDecoder> decoder;
    std::unique_ptr<fe_t, FreeFrontEnd> frontEnd;
    std::vector<mfcc_t> initialMean;
    std::vector<mfcc_t> meanBefore;
    bool inUtterance = false;

    // The documented interface gives no access to the channel estimate (cepstral mean normalisation).
    [[nodiscard]] cmn_t* channel() const { return ps_get_feat(decoder.get())->cmn_struct; }
    [[nodiscard]] std::vector<mfcc_t> mean() const {
        std::vector<mfcc_t> values(static_cast<size_t>(channel()->veclen));
        cmn_live_get(channel(), values.data());
        return values;
    }
    void estimateChannel(std::span<const int16_t> opening) const;
};

void Decoder::Library::estimateChannel(std::span<const int16_t> opening) const {
    const size_t size = initialMean.size();
    std::vector<double> sum(size);
    for (size_t i = 0; i < size; ++i)
        sum[i] = static_cast<double>(initialMean[i]) * priorFrames;
    double frames = priorFrames;
    constexpr int block = 16;
    std::vector<mfcc_t> storage(block * static_cast<size_t>(fe_get_output_size(frontEnd.get())));
    std::array<mfcc_t*, block> rows{};
    for (size_t row = 0; row < block; ++row)
        rows[row] = storage.data() + row * storage.size() / block;
    const auto add = [&](int count) {
        for (int row = 0; row < count; ++row)
            for (size_t i = 0; i < size; ++i)
                sum[i] += rows[static_cast<size_t>(row)][i];
        frames += count;
    };
    fe_start_stream(frontEnd.get());
    fe_start_utt(frontEnd.get());
    const int16_t* samples = opening.data();
    size_t left = opening.size();
    while (left > 0) {
        int32 count = block;
        if (fe_process_frames(frontEnd.get(), &samples, &left, rows.data(), &count, nullptr) < 0 || count == 0)
            break;
        add(count);
    }
    int32 last = 0;
    fe_end_utt(frontEnd.get(), rows[0], &last);
    add(last);
    std::vector<mfcc_t> estimate(size);
    for (size_t i = 0; i < size; ++i)
        estimate[i] = static_cast<mfcc_t>(sum[i] / frames);
    cmn_live_set(channel(), estimate.data());
}

Decoder::Decoder(const ModelFiles& files) : m_library(std::make_unique<Library>()) {
    const std::scoped_lock lock(loadMutex());
    err_set_logfp(nullptr);
    const MemoryFile dictionary("dictionary", dictionaryWithMarks(files.dictionary));
    const MemoryFile marks("marks", languageModelOfMarks());
    const char* noise = files.removeNoise ? "yes" : "no";
    const Config config(cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", files.acoustic.c_str(), "-dict",
                                    dictionary.path().c_str(), "-fwdflat", "no", "-remove_silence", "no",
                                    "-remove_noise", noise, nullptr));
    const RecogniserUnavailable failure("The recogniser could not load the model in " +
                                        files.acoustic.parent_path().string() + "; " + remedy);
    if (!config)
        throw failure;
    m_library->decoder.reset(ps_init(config.get()));
    if (!m_library->decoder)
        throw failure;
    ps_decoder_t* decoder = m_library->decoder.get();

    // Use a set of models instead of adding words to the large one, which corrupts memory in this version of the
    // library.
    const Model large(ngram_model_read(config.get(), files.languageModel.c_str(), NGRAM_AUTO, ps_get_logmath(decoder)));
    const Model small(ngram_model_read(config.get(), marks.path().c_str(), NGRAM_ARPA, ps_get_logmath(decoder)));
    if (!large || !small)
        throw failure;
    std::array<ngram_model_t*, 2> models{large.get(), small.get()};
    std::string dictated = "dictated";
    std::string spoken = "marks";
    std::array<char*, 2> names{dictated.data(), spoken.data()};
    constexpr std::array<float32, 2> weights{0.95F, 0.05F};
    const Model mixed(ngram_model_set_init(config.get(), models.data(), names.data(), weights.data(), models.size()));
    if (!mixed || ps_set_lm(decoder, "mixed", mixed.get()) != 0 || ps_set_search(decoder, "mixed") != 0)
        throw failure;

    Config frontEnd(cmd_ln_init(nullptr, ps_args(), TRUE, "-remove_silence", "no", "-remove_noise", noise, nullptr));
    frontEnd.reset(cmd_ln_parse_file_r(frontEnd.release(), ps_args(), (files.acoustic / "feat.params").c_str(), FALSE));
    if (frontEnd)
        m_library->frontEnd.reset(fe_init_auto_r(frontEnd.get()));
    if (!m_library->frontEnd)
        throw failure;
    m_library->initialMean = m_library->mean();
}

Decoder::~Decoder() {
    const std::scoped_lock lock(loadMutex());
    m_library.reset();
}

void Decoder::reset() {
    if (m_library->inUtterance)
        ps_end_utt(m_library->decoder.get());
    m_library->inUtterance = false;
    ps_start_stream(m_library->decoder.get());
    cmn_live_set(m_library->channel(), m_library->initialMean.data());
}

void Decoder::begin(std::span<const int16_t> opening) {
    m_library->meanBefore = m_library->mean();
    if (!opening.empty())
        m_library->estimateChannel(opening);
    m_library->inUtterance = ps_start_utt(m_library->decoder.get()) == 0;
}

void Decoder::process(std::span<const int16_t> samples) {
    ps_process_raw(m_library->decoder.get(), samples.data(), samples.size(), FALSE, FALSE);
}

RawWords Decoder::partial() {
    RawWords words;
    const char* hypothesis = ps_get_hyp(m_library->decoder.get(), nullptr);
    std::istringstream text(hypothesis != nullptr ? hypothesis : "");
    for (std::string word; text >> word;)
        words.push_back({word, 0, 0, 1});
    return words;
}

RawWords Decoder::end() {
    RawWords words;
    ps_end_utt(m_library->decoder.get());
    m_library->inUtterance = false;
    if (ps_get_hyp(m_library->decoder.get(), nullptr) != nullptr) {
        logmath_t* logarithms = ps_get_logmath(m_library->decoder.get());
        int begin = -1;
        for (ps_seg_t* segment = ps_seg_iter(m_library->decoder.get()); segment != nullptr;
             segment = ps_seg_next(segment)) {
            int first = 0;
            int last = 0;
            ps_seg_frames(segment, &first, &last);
            // The library counts from the start of the stream; the first segment, a silence, begins the utterance.
            if (begin < 0)
                begin = first;
            first -= begin;
            last -= begin;
            std::string word = withoutVariant(ps_seg_word(segment));
            if (isFiller(word))
                continue;
            const double confidence = logmath_exp(logarithms, ps_seg_prob(segment, nullptr, nullptr, nullptr));
            words.push_back(
                {std::move(word), first * frameSeconds, (last + 1) * frameSeconds, std::clamp(confidence, 0.0, 1.0)});
        }
    }
    if (words.empty())
        cmn_live_set(m_library->channel(), m_library->meanBefore.data());
    return words;
}

} // namespace quillo::server
