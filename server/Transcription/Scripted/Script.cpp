#include "Transcription/Scripted/Script.h"

#include "Foundation/Json.h"

#include <algorithm>

namespace quillo::server {
namespace {

double positive(const Json& json, const char* key, double fallback) {
    const double value = optionalNumber(json, key).value_or(fallback);
    if (!(value > 0))
        throw std::invalid_argument(std::string("\"") + key + "\" must be above 0");
    return value;
}

ScriptEvent parseEvent(const Json& json) {
    if (!json.is_object())
        throw std::invalid_argument("\"events\" must hold objects");
    ScriptEvent event;
    event.at = optionalNumber(json, "at").value_or(0);
    event.confidence = optionalNumber(json, "confidence").value_or(event.confidence);
    using Kind = ScriptEvent::Kind;
    const std::pair<const char*, Kind> kinds[] = {
        {"partial", Kind::partial}, {"final", Kind::final}, {"fail", Kind::fail}, {"unavailable", Kind::unavailable}};
    for (const auto& [key, kind] : kinds) {
        if (const auto text = optionalString(json, key)) {
            event.kind = kind;
            event.text = *text;
            return event;
        }
    }
    throw std::invalid_argument("an event needs \"partial\", \"final\", \"fail\" or \"unavailable\"");
}

Script::Finish parseFinish(const std::string& text) {
    if (text == "normal")
        return Script::Finish::normal;
    if (text == "never")
        return Script::Finish::never;
    if (text == "fail")
        return Script::Finish::fail;
    if (text == "unavailable")
        return Script::Finish::unavailable;
    throw std::invalid_argument("\"finish\" must be \"normal\", \"never\", \"fail\" or \"unavailable\"");
}

const Json& listOf(const Json& json, const char* key) {
    static const Json none = Json::array();
    const auto found = json.find(key);
    if (found == json.end())
        return none;
    if (!found->is_array())
        throw std::invalid_argument(std::string("\"") + key + "\" must be a list");
    return *found;
}

} // namespace

Script Script::defaultScript() {
    Script script;
    script.words = {"the", "quick", "brown", "fox", "jumps", "over", "the", "lazy", "dog", "again"};
    return script;
}

Script Script::fromJson(const std::string& text) {
    const auto json = parseJson(text);
    if (!json || !json->is_object())
        throw std::runtime_error("the script is not a JSON object");
    try {
        Script script;
        script.language = optionalString(*json, "language").value_or(script.language);
        script.unavailable = optionalString(*json, "open").value_or("");
        script.delay = std::chrono::milliseconds(static_cast<int64_t>(optionalNumber(*json, "delay_ms").value_or(0)));
        if (json->contains("speed"))
            script.speed = positive(*json, "speed", 1);
        for (const auto& event : listOf(*json, "events"))
            script.events.push_back(parseEvent(event));
        std::stable_sort(script.events.begin(), script.events.end(),
                         [](const ScriptEvent& left, const ScriptEvent& right) { return left.at < right.at; });
        for (const auto& word : listOf(*json, "words")) {
            if (!word.is_string())
                throw std::invalid_argument("\"words\" must hold strings");
            script.words.push_back(word.get<std::string>());
        }
        script.wordsPerSecond = positive(*json, "words_per_second", script.wordsPerSecond);
        script.wordsPerFinal = static_cast<int>(positive(*json, "words_per_final", script.wordsPerFinal));
        script.finish = parseFinish(optionalString(*json, "finish").value_or("normal"));
        return script;
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(std::string("the script is wrong: ") + error.what());
    }
}

} // namespace quillo::server
