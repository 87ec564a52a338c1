// Feeds the reader of uploaded forms, and of the WAV file in them, with what libFuzzer thinks up. However a body is cut
// into pieces, it must give the same parts.

#include "Uploads/MultipartParser.h"
#include "Uploads/UploadError.h"
#include "Uploads/WavFile.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

using namespace quillo::server;

namespace {

class Parts final : public MultipartSink {
public:
    void partBegan(const PartHeader& header) override {
        text += "<" + header.name + "|" + header.fileName.value_or("") + "|" + header.contentType + ">";
        content.clear();
    }
    void partData(std::string_view bytes) override { content += bytes; }
    void partEnded() override { text += content + "</>"; }

    std::string text;
    std::string content; ///< of the last part
};

void parse(std::string_view body, size_t piece, Parts& parts) {
    try {
        MultipartParser parser("b", parts);
        for (size_t i = 0; i < body.size(); i += piece)
            parser.push(body.substr(i, piece));
        parser.finish();
        parts.text += "complete";
    } catch (const UploadError& error) {
        // How far it came depends on the pieces; that it fails does not.
        parts.text = error.what();
    }
}

void readWav(std::string_view bytes) {
    const int descriptor = ::memfd_create("wav", MFD_CLOEXEC);
    if (descriptor < 0 || ::write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        std::abort();
    try {
        WavFile wav("/proc/self/fd/" + std::to_string(descriptor));
        std::array<int16_t, 100> samples{};
        size_t total = 0;
        for (size_t count = 0; (count = wav.read(samples)) > 0;)
            total += count;
        if (static_cast<int64_t>(total) != wav.frames() * wav.channels() || total * 2 > bytes.size())
            std::abort();
    } catch (const UploadError&) {
    }
    ::close(descriptor);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
    MultipartParser::boundaryOf(body);
    Parts whole;
    parse(body, std::max<size_t>(1, body.size()), whole);
    Parts cut;
    parse(body, size_t{data[0]} % 16 + 1, cut);
    if (whole.text != cut.text)
        std::abort();
    readWav(whole.content);
    return 0;
}
