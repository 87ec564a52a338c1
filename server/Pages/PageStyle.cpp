#include "Pages/PageStyle.h"

#include "Foundation/Encoding.h"

#include <algorithm>

namespace quillo::server {
namespace {

/// Standard base64, as required for hashes in policies.
std::string base64(std::span<const uint8_t> bytes) {
    std::string text = encodeBase64Url(bytes);
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

} // namespace

const std::string& pageStyle() {
    static const std::string style = R"(
:root {
  color-scheme: light dark;
  --page: #f3f2f7; --card: #ffffff; --text: #1c1a24; --soft: #5b5768; --line: #8a8598; --field: #ffffff;
  --accent: #5b3fd6; --accent-strong: #4a31b8; --on-accent: #ffffff; --error: #b3142b; --error-back: #fdecee;
  --shadow: 0 1px 2px rgb(28 26 36 / 8%), 0 12px 32px rgb(28 26 36 / 10%);
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #15141a; --card: #201f28; --text: #f1f0f6; --soft: #b3afc2; --line: #7d788d; --field: #191820;
    --accent: #a794ff; --accent-strong: #bcadff; --on-accent: #17141f; --error: #ff9aa6; --error-back: #3a1d24;
    --shadow: none;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0; min-height: 100vh; padding: 24px 16px; display: flex; align-items: center; justify-content: center;
  background: var(--page); color: var(--text); font: 16px/1.5 system-ui, -apple-system, "Segoe UI", sans-serif;
}
main {
  width: 100%; max-width: 420px; padding: 32px; background: var(--card); border-radius: 16px;
  box-shadow: var(--shadow);
}
.brand { display: flex; align-items: center; gap: 10px; margin: 0 0 20px; font-weight: 600; }
.brand svg { width: 32px; height: 32px; flex: none; }
h1 { margin: 0 0 6px; font-size: 24px; line-height: 1.25; letter-spacing: -.01em; }
p { margin: 0 0 16px; }
.lead { margin-bottom: 24px; color: var(--soft); }
.field { margin-bottom: 18px; }
label { display: block; margin-bottom: 6px; font-weight: 600; }
.optional { color: var(--soft); font-weight: 400; }
.hint { margin: 6px 0 0; color: var(--soft); font-size: 14px; }
input {
  width: 100%; min-height: 46px; padding: 10px 12px; border: 1px solid var(--line); border-radius: 10px;
  background: var(--field); color: inherit; font: inherit;
}
input[aria-invalid=true] { border-color: var(--error); box-shadow: inset 0 0 0 1px var(--error); }
input:focus-visible, .button:focus-visible, a:focus-visible {
  outline: 3px solid var(--accent); outline-offset: 2px;
}
.error { margin: 6px 0 0; color: var(--error); font-size: 14px; font-weight: 600; }
.alert {
  margin-bottom: 20px; padding: 12px 14px; border-left: 4px solid var(--error); border-radius: 8px;
  background: var(--error-back); color: var(--text);
}
.button {
  display: block; width: 100%; min-height: 48px; margin-top: 24px; padding: 11px 16px; border: 1px solid transparent;
  border-radius: 10px; background: var(--accent); color: var(--on-accent); font: inherit; font-weight: 600;
  text-align: center; text-decoration: none; cursor: pointer;
}
.button:hover { background: var(--accent-strong); }
a { color: var(--accent); text-underline-offset: 3px; }
.below { margin: 22px 0 0; color: var(--soft); text-align: center; }
.below + .below { margin-top: 8px; }
@media (max-width: 480px) {
  body { padding: 0; align-items: flex-start; background: var(--card); }
  main { padding: 28px 20px; border-radius: 0; box-shadow: none; }
}
@media (forced-colors: active) { .button, .alert { border: 1px solid; } }
)";
    return style;
}

const std::string& pageIcon() {
    static const std::string icon =
        R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 128 128" aria-hidden="true">)"
        R"(<rect x="6" y="6" width="116" height="116" rx="30" fill="#6443d6"/>)"
        R"(<path d="M52 80C36 50 62 26 102 26C102 66 84 92 52 80Z" fill="#fff"/>)"
        R"(<path d="M26 104L78 50" fill="none" stroke="#4a2fbd" stroke-width="5" stroke-linecap="round"/>)"
        R"(<path d="M26 104L51 78" fill="none" stroke="#fff" stroke-width="7" stroke-linecap="round"/>)"
        R"(<path d="M58 104V104M69 99V109M80 94V112M91 99V109M102 103V105" fill="none" stroke="#fff" )"
        R"(stroke-width="5.5" stroke-linecap="round"/></svg>)";
    return icon;
}

const std::string& pageIconUrl() {
    static const std::string url = "data:image/svg+xml," + encodePercent(pageIcon());
    return url;
}

const std::string& pagePolicy() {
    static const std::string policy = "default-src 'none'; style-src 'sha256-" + base64(sha256(pageStyle())) +
                                      "'; img-src data:; form-action 'self' quillo:; frame-ancestors 'none'; "
                                      "base-uri 'none'";
    return policy;
}

} // namespace quillo::server
