#include "RecogniserFactory.h"

#include "Foundation/Files.h"
#include "Transcription/PocketSphinxRecogniser.h"
#include "Transcription/Scripted/ScriptedRecogniser.h"

#include <stdexcept>

namespace quillo::server {
namespace {

Script readScript(const std::filesystem::path& file) {
    const auto text = readFile(file);
    if (!text)
        throw std::runtime_error("--script: there is no file " + file.string());
    try {
        return Script::fromJson(*text);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("--script " + file.string() + ": " + error.what());
    }
}

} // namespace

std::shared_ptr<Recogniser> makeRecogniser(const RecogniserOptions& options) {
    switch (options.kind) {
    case RecogniserKind::scripted:
        return makeScriptedRecogniser(options.script.empty() ? Script::defaultScript() : readScript(options.script));
    case RecogniserKind::pocketSphinx: {
        PocketSphinxSettings settings;
        if (!options.model.empty())
            settings.modelFolder = options.model;
        return makePocketSphinxRecogniser(settings);
    }
    case RecogniserKind::http:
        throw std::runtime_error("--recogniser http: not built into this server; use pocketsphinx");
    }
    throw std::logic_error("unknown recogniser");
}

} // namespace quillo::server
