#pragma once

#include <stdexcept>
#include <string>

namespace quillo::server {

/// Why an upload is refused, as the client is told.
class UploadError : public std::runtime_error {
public:
    /// `status` is the HTTP status, `code` the word for programs, `detail` the cause and the next step for people.
    UploadError(int status, std::string code, const std::string& detail)
        : std::runtime_error(detail), status_(status), code_(std::move(code)) {}

    [[nodiscard]] int status() const { return status_; }
    [[nodiscard]] const std::string& code() const { return code_; }

private:
    int status_;
    std::string code_;
};

} // namespace quillo::server
