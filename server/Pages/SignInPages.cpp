#include "Pages/SignInPages.h"

#include "Pages/Html.h"
#include "Pages/PageStyle.h"

#include <algorithm>
#include <vector>

namespace quillo::server {
namespace {

std::string page(PageLanguage language, const std::string& title, const std::string& content,
                 const std::string& head = {}) {
    return "<!DOCTYPE html>\n<html lang=\"" + std::string(language.code) +
           "\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"robots\" content=\"noindex\">\n" +
           head + "<title>" + escapeHtml(title) + "</title>\n<link rel=\"icon\" href=\"" + pageIconUrl() +
           "\">\n<style>" + pageStyle() + "</style>\n</head>\n<body>\n<main>\n<p class=\"brand\">" + pageIcon() +
           "Quillo</p>\n" + content + "</main>\n</body>\n</html>\n";
}

struct Field {
    const char* id;
    std::string label;
    const char* type;
    const char* autocomplete;
    std::string value = {};
    std::string error = {};
    std::string hint = {};
    bool isRequired = true;
    bool hasFocus = false;
    bool isInvalid = false; ///< even without its own error
    /// The id of another element that describes it.
    std::string describedBy = {};
};

std::string render(const Field& field, PageLanguage language) {
    const std::string id = field.id;
    std::string described = field.describedBy;
    const auto describe = [&described](const std::string& by) { described += (described.empty() ? "" : " ") + by; };
    if (!field.error.empty())
        describe(id + "-error");
    if (!field.hint.empty())
        describe(id + "-hint");
    std::string html =
        "<div class=\"field\">\n<label for=\"" + id + "\">" + field.label +
        (field.isRequired ? "" : " <span class=\"optional\">" + pageText(PageText::optional, language) + "</span>") +
        "</label>\n<input id=\"" + id + "\" name=\"" + id + "\" type=\"" + field.type + "\" autocomplete=\"" +
        field.autocomplete + "\"";
    if (std::string_view(field.type) == "email")
        html += " autocapitalize=\"none\" spellcheck=\"false\"";
    if (!field.value.empty())
        html += " value=\"" + escapeHtml(field.value) + "\"";
    if (field.isRequired)
        html += " required";
    if (!field.error.empty() || field.isInvalid)
        html += " aria-invalid=\"true\"";
    if (!described.empty())
        html += " aria-describedby=\"" + described + "\"";
    if (field.hasFocus)
        html += " autofocus";
    html += ">\n";
    if (!field.error.empty())
        html += "<p class=\"error\" id=\"" + id + "-error\">" + escapeHtml(field.error) + "</p>\n";
    if (!field.hint.empty())
        html += "<p class=\"hint\" id=\"" + id + "-hint\">" + escapeHtml(field.hint) + "</p>\n";
    return html + "</div>\n";
}

std::string fieldsOf(const SignInForm& form) {
    const auto language = form.language;
    Field name{"full_name", pageText(PageText::nameLabel, language), "text", "name", form.fullName, form.nameError};
    name.isRequired = false;
    Field email{"email", pageText(PageText::emailLabel, language), "email", "username", form.email, form.emailError};
    Field password{"password", pageText(PageText::passwordLabel, language), "password", "current-password"};
    password.error = form.passwordError;
    if (form.isRegistration) {
        password.autocomplete = "new-password";
        // The error already says it.
        if (form.passwordError.empty())
            password.hint = pageText(PageText::passwordHint, language);
    }
    std::vector<Field*> fields = {&email, &password};
    if (form.isRegistration)
        fields.insert(fields.begin(), &name);
    auto focus = std::ranges::find_if(fields, [](const Field* field) { return !field->error.empty(); });
    if (focus == fields.end())
        focus = std::ranges::find_if(fields, [](const Field* field) { return field->value.empty(); });
    (*focus)->hasFocus = true;
    if (!form.alert.empty() && (*focus)->error.empty())
        (*focus)->describedBy = "alert";
    password.isInvalid = form.isRefused;
    return (form.isRegistration ? render(name, language) : std::string()) + render(email, language) +
           render(password, language);
}

} // namespace

std::string signInPage(const SignInForm& form) {
    const bool isNew = form.isRegistration;
    const auto say = [&form](PageText text) { return escapeHtml(pageText(text, form.language)); };
    const bool hasError =
        !form.alert.empty() || !form.nameError.empty() || !form.emailError.empty() || !form.passwordError.empty();
    const auto heading = isNew ? PageText::registerHeading : PageText::signInHeading;
    std::string html = "<h1>" + say(heading) + "</h1>\n<p class=\"lead\">" +
                       say(isNew ? PageText::registerLead : PageText::signInLead) + "</p>\n";
    if (!form.alert.empty())
        html += "<p class=\"alert\" id=\"alert\" role=\"alert\">" + escapeHtml(form.alert) + "</p>\n";
    html += std::string("<form method=\"post\" action=\"") + (isNew ? "register" : "login") + "?" +
            escapeHtml(form.query) + "\" novalidate>\n<input type=\"hidden\" name=\"form_token\" value=\"" +
            escapeHtml(form.token) + "\">\n" + fieldsOf(form) + "<button class=\"button\" type=\"submit\">" +
            say(isNew ? PageText::registerButton : PageText::signInButton) + "</button>\n</form>\n";
    html += "<p class=\"below\">" + say(isNew ? PageText::haveAccount : PageText::newHere) + " <a href=\"" +
            (isNew ? "login" : "register") + "?" + escapeHtml(form.query) + "\">" +
            say(isNew ? PageText::toSignIn : PageText::toRegister) + "</a></p>\n";
    if (!form.cancelUrl.empty())
        html +=
            "<p class=\"below\"><a href=\"" + escapeHtml(form.cancelUrl) + "\">" + say(PageText::cancel) + "</a></p>\n";
    const auto title = pageText(heading, form.language);
    return page(form.language, hasError ? pageText(PageText::error, form.language) + ": " + title : title, html);
}

std::string signedInPage(const std::string& callbackUrl, bool isNewAccount, PageLanguage language) {
    const std::string url = escapeHtml(callbackUrl);
    const auto say = [language](PageText text) { return escapeHtml(pageText(text, language)); };
    return page(language, pageText(PageText::signedInHeading, language),
                "<h1>" + say(PageText::signedInHeading) + "</h1>\n<p class=\"lead\" role=\"status\">" +
                    (isNewAccount ? say(PageText::accountReady) + " " : std::string()) + say(PageText::goBack) +
                    "</p>\n<a class=\"button\" href=\"" + url + "\" autofocus>" + say(PageText::backButton) + "</a>\n",
                "<meta http-equiv=\"refresh\" content=\"0;url=" + url + "\">\n");
}

std::string messagePage(const std::string& title, const std::string& text, PageLanguage language) {
    return page(language, title, "<h1>" + escapeHtml(title) + "</h1>\n<p>" + escapeHtml(text) + "</p>\n");
}

} // namespace quillo::server
