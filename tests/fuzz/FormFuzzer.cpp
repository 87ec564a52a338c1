// Feeds what reads queries and forms, and what shows them, with what libFuzzer thinks up. Whatever is in the input,
// only the application is answered, in a URL that holds nothing but characters of URLs, and pages show text.

#include "Accounts/Credentials.h"
#include "Foundation/Encoding.h"
#include "Foundation/FormFields.h"
#include "Pages/Html.h"
#include "Transport/AuthorizationRequest.h"

#include <cstdlib>

using namespace quillo::server;

namespace {

void expect(bool holds) {
    if (!holds)
        std::abort();
}

void expectCallback(const std::string& url) {
    expect(url.starts_with("quillo://auth/callback?"));
    expect(url.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~%:/?&=") ==
           std::string::npos);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto read = readAuthorizationRequest(text);
    if (const auto* request = std::get_if<AuthorizationRequest>(&read)) {
        const auto again = readAuthorizationRequest(request->query());
        const auto* same = std::get_if<AuthorizationRequest>(&again);
        expect(same && same->state == request->state && same->challenge == request->challenge &&
               same->anonymousUserId == request->anonymousUserId);
        expectCallback(request->callback("code"));
        expectCallback(request->refusal("error", std::string(text)));
    } else if (const auto* refused = std::get_if<RefusedRequest>(&read)) {
        expectCallback(refused->callback);
    }
    const std::string html = escapeHtml(text);
    expect(countCharacters(html).has_value() && html.find_first_of("<>\"'") == std::string::npos);
    if (const auto form = FormFields::parse(text)) {
        const auto email = normalisedEmail(form->value("email"));
        expect(!email || normalisedEmail(*email) == email);
        objectionTo(form->value("password"), email.value_or(""));
        objectionToName(form->value("full_name"));
    }
    return 0;
}
