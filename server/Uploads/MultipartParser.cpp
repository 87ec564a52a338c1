#include "Uploads/MultipartParser.h"

#include "Uploads/UploadError.h"

#include <algorithm>
#include <strings.h>

namespace quillo::server {
namespace {

constexpr size_t maxBoundaryLength = 70;

[[noreturn]] void malformed(const std::string& cause) {
    throw UploadError(400, "MALFORMED_MULTIPART",
                      "The body is not valid multipart/form-data: " + cause + ". Send the form again.");
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

/// Removes a token or a quoted string from the beginning of `text` (RFC 9110 section 5.6).
std::string takeValue(std::string_view& text) {
    std::string value;
    if (text.starts_with('"')) {
        text.remove_prefix(1);
        while (!text.empty() && text.front() != '"') {
            if (text.front() == '\\' && text.size() > 1)
                text.remove_prefix(1);
            value += text.front();
            text.remove_prefix(1);
        }
        if (!text.empty())
            text.remove_prefix(1);
        return value;
    }
    const auto end = text.find(';');
    value = std::string(trimmed(text.substr(0, end)));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end);
    return value;
}

/// The parameter `name` of a header such as "form-data; name=x; filename=y".
std::optional<std::string> parameter(std::string_view header, std::string_view name) {
    const auto first = header.find(';');
    header.remove_prefix(first == std::string_view::npos ? header.size() : first);
    while (!header.empty()) {
        const auto begin = header.find_first_not_of("; \t");
        if (begin == std::string_view::npos)
            break;
        header.remove_prefix(begin);
        const auto equals = header.find_first_of("=;");
        const auto key = trimmed(header.substr(0, equals));
        if (equals == std::string_view::npos)
            break;
        header.remove_prefix(equals);
        if (header.front() == ';')
            continue;
        header.remove_prefix(1);
        auto value = takeValue(header);
        if (equalsIgnoringCase(key, name))
            return value;
    }
    return std::nullopt;
}

PartHeader parsePartHeader(std::string_view text) {
    PartHeader header;
    bool named = false;
    while (!text.empty()) {
        const auto line = text.substr(0, text.find("\r\n"));
        text.remove_prefix(std::min(text.size(), line.size() + 2));
        const auto colon = line.find(':');
        if (colon == std::string_view::npos)
            malformed("a line in the header of a part has no colon");
        const auto key = trimmed(line.substr(0, colon));
        const auto value = trimmed(line.substr(colon + 1));
        if (equalsIgnoringCase(key, "Content-Disposition")) {
            if (!equalsIgnoringCase(trimmed(value.substr(0, value.find(';'))), "form-data"))
                malformed("a part is not declared as form-data");
            if (const auto name = parameter(value, "name")) {
                header.name = *name;
                named = true;
            }
            header.fileName = parameter(value, "filename");
        } else if (equalsIgnoringCase(key, "Content-Type")) {
            header.contentType = std::string(value);
        }
    }
    if (!named)
        malformed("a part has no name");
    return header;
}

} // namespace

std::optional<std::string> MultipartParser::boundaryOf(std::string_view contentType) {
    auto boundary = parameter(contentType, "boundary");
    const auto allowed = [](char c) {
        const bool alphanumeric = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        return alphanumeric || std::string_view("'()+_,-./:=? ").find(c) != std::string_view::npos;
    };
    if (!boundary || boundary->empty() || boundary->size() > maxBoundaryLength || boundary->back() == ' ' ||
        !std::ranges::all_of(*boundary, allowed))
        return std::nullopt;
    return boundary;
}

// The first boundary has no line break before it, so add one before the body.
MultipartParser::MultipartParser(const std::string& boundary, MultipartSink& sink)
    : m_sink(sink), m_delimiter("\r\n--" + boundary), m_pending("\r\n") {}

void MultipartParser::push(std::string_view bytes) {
    if (m_state == State::epilogue)
        return;
    m_pending.append(bytes);
    while (step()) {
    }
    m_pending.erase(0, m_read);
    m_read = 0;
}

void MultipartParser::finish() const {
    if (m_state != State::epilogue)
        malformed("it ends before the closing boundary");
}

/// Processes one state; false when more bytes are needed.
bool MultipartParser::step() {
    switch (m_state) {
    case State::preamble:
        return skipPreamble();
    case State::delimiter:
        return readDelimiter();
    case State::header:
        return readHeader();
    case State::body:
        return readBody();
    case State::epilogue:
        m_read = m_pending.size();
        return false;
    }
    return false;
}

bool MultipartParser::skipPreamble() {
    const auto found = m_pending.find(m_delimiter, m_read);
    const auto end = found == std::string::npos
                         ? std::max(m_read, m_pending.size() - std::min(m_pending.size(), m_delimiter.size() - 1))
                         : found;
    m_preamble += end - m_read;
    m_read = end;
    if (m_preamble > maxPreambleBytes)
        malformed("the boundary of the Content-Type does not come");
    if (found == std::string::npos)
        return false;
    m_read = found + m_delimiter.size();
    m_state = State::delimiter;
    return true;
}

bool MultipartParser::readDelimiter() {
    const std::string_view rest = std::string_view(m_pending).substr(m_read);
    if (rest.size() < 2)
        return false;
    if (rest.starts_with("--")) {
        m_state = State::epilogue;
        return true;
    }
    // Spaces may follow the boundary (RFC 2046 section 5.1.1).
    const auto text = rest.find_first_not_of(" \t");
    if (text == std::string_view::npos || rest.size() < text + 2) {
        if (rest.size() > maxHeaderBytes)
            malformed("a boundary is not followed by a line break");
        return false;
    }
    if (rest.substr(text, 2) != "\r\n")
        malformed("a boundary is not followed by a line break");
    if (++m_parts > maxParts)
        malformed("it has too many parts");
    m_read += text + 2;
    m_state = State::header;
    return true;
}

bool MultipartParser::readHeader() {
    const std::string_view rest = std::string_view(m_pending).substr(m_read);
    const auto end = rest.find("\r\n\r\n");
    if (end == std::string_view::npos || end > maxHeaderBytes) {
        if (rest.size() > maxHeaderBytes)
            malformed("the header of a part is too large");
        return false;
    }
    const PartHeader header = parsePartHeader(rest.substr(0, end));
    m_read += end + 4;
    m_state = State::body;
    m_sink.partBegan(header);
    return true;
}

bool MultipartParser::readBody() {
    const auto found = m_pending.find(m_delimiter, m_read);
    const auto end = found == std::string::npos
                         ? std::max(m_read, m_pending.size() - std::min(m_pending.size(), m_delimiter.size() - 1))
                         : found;
    if (end > m_read)
        m_sink.partData(std::string_view(m_pending).substr(m_read, end - m_read));
    m_read = end;
    if (found == std::string::npos)
        return false;
    m_read = found + m_delimiter.size();
    m_state = State::delimiter;
    m_sink.partEnded();
    return true;
}

} // namespace quillo::server
