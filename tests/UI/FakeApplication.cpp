#include "UI/FakeApplication.h"

#include "Core/SupportedLanguages.h"

namespace quillo::test {

FakeApplication::FakeApplication() {
    hooks.pillEnabled = [this] { return pillWanted; };
    hooks.loadPillPosition = [this] { return pillPosition; };
    hooks.savePillPosition = [this](QPointF position) { pillPosition = position; };
    hooks.listLanguages = [] {
        InterfaceChoices choices;
        for (const auto& language : SupportedLanguages::all())
            choices.push_back({language.code, language.nativeName, language.name, language.code == u"de"});
        return choices;
    };
    hooks.selectLanguage = [this](const QString& code) { chosenLanguage = code; };
    hooks.listMicrophones = [](const auto& answer) {
        answer({{QStringLiteral("usb"), QStringLiteral("Desk & Chair Microphone"), {}, true},
                {QStringLiteral("built-in"), QStringLiteral("Built-in Audio"), {}, false}});
    };
    hooks.insertAgain = [] {};
    hooks.lastText = [] { return QString(); };
}

} // namespace quillo::test
