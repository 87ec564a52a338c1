#include "RecogniserFactory.h"

#include "Foundation/Files.h"
#include "Foundation/Log.h"
#include "Transcription/Http/HttpRecogniser.h"
#include "Transcription/PocketSphinx/PocketSphinxRecogniser.h"
#include "Transcription/Scripted/ScriptedRecogniser.h"

#include <cstdlib>
#include <stdexcept>
#include <sys/stat.h>

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

std::string readKey(const std::filesystem::path& file) {
    if (file.empty()) {
        const char* key = std::getenv("QUILLO_RECOGNISER_KEY");
        return key ? key : "";
    }
    auto key = readFile(file);
    if (!key)
        throw std::runtime_error("--recogniser-key-file: there is no file " + file.string());
    struct stat status {};
    if (::stat(file.c_str(), &status) == 0 && (status.st_mode & 0077) != 0)
        log(LogLevel::warning, "recogniser", "others may read the key in " + file.string() + "; chmod 600 it");
    const auto end = key->find_last_not_of(" \t\r\n");
    key->resize(end == std::string::npos ? 0 : end + 1);
    if (key->empty())
        throw std::runtime_error("--recogniser-key-file: " + file.string() + " is empty; put the key into it");
    return *key;
}

HttpRecogniserSettings httpSettings(const RecogniserOptions& options) {
    HttpRecogniserSettings settings;
    settings.url = options.url;
    settings.model = options.model;
    settings.prompt = options.prompt;
    settings.languages = options.languages;
    settings.authorityFile = options.authorityFile;
    if (!options.path.empty())
        settings.path = options.path;
    settings.connectTimeout =
        options.connectTimeout.value_or(std::chrono::duration_cast<std::chrono::seconds>(settings.connectTimeout));
    settings.requestTimeout =
        options.requestTimeout.value_or(std::chrono::duration_cast<std::chrono::seconds>(settings.requestTimeout));
    settings.maxSessions = options.sessions.value_or(settings.maxSessions);
    settings.key = readKey(options.keyFile);
    return settings;
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
        settings.maxDecoders = options.sessions.value_or(settings.maxDecoders);
        return makePocketSphinxRecogniser(settings);
    }
    case RecogniserKind::http:
        return makeHttpRecogniser(httpSettings(options));
    }
    throw std::logic_error("unknown recogniser");
}

} // namespace quillo::server
