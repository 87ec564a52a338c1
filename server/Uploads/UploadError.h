#pragma once

#include <stdexcept>
#include <string>

namespace quillo::server {

/// Why an upload is refused, as reported to the client.
class UploadError : public std::runtime_error {
public:
    /// `status` is the HTTP status, `code` a word for programs, `detail` the cause and the next step for users.
    UploadError(int status, std::string code, const std::string& detail)
        : std::runtime_error(detail), m_status(status), m_code(std::move(code)) {}

    [[nodiscard]] int status() const { return m_status; }
    [[nodiscard]] const std::string& code() const { return m_code; }

private:
    int m_status;
    std::string m_code;
};

} // namespace quillo::server
