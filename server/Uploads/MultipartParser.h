#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillo::server {

/// The header of a part.
struct PartHeader {
    std::string name;
    std::optional<std::string> fileName;
    std::string contentType; ///< empty when not given
};

/// Receives the parts of a form in order.
class MultipartSink {
public:
    virtual ~MultipartSink() = default;
    virtual void partBegan(const PartHeader& header) = 0;
    virtual void partData(std::string_view bytes) = 0;
    virtual void partEnded() = 0;
};

/// Cuts a multipart/form-data body (RFC 7578, RFC 2046 section 5.1) into its parts as it arrives. Keeps at most a
/// block, a delimiter and a part's header in memory. Exceptions of the sink pass through. Not thread-safe.
class MultipartParser {
public:
    static constexpr size_t maxHeaderBytes = size_t{8} * 1024;
    static constexpr size_t maxPreambleBytes = 1024;
    static constexpr int maxParts = 32;

    /// The boundary in a Content-Type; empty when there is none that RFC 2046 allows.
    static std::optional<std::string> boundaryOf(std::string_view contentType);

    /// `sink` must outlive the parser.
    MultipartParser(const std::string& boundary, MultipartSink& sink);

    /// Throws UploadError when the bytes are not a form.
    void push(std::string_view bytes);
    /// Call at the end of the body. Throws UploadError when the closing boundary is missing.
    void finish() const;

private:
    enum class State { preamble, delimiter, header, body, epilogue };

    bool step();
    bool skipPreamble();
    bool readDelimiter();
    bool readHeader();
    bool readBody();

    MultipartSink& m_sink;
    std::string m_delimiter; ///< with the line break before it
    std::string m_pending;
    size_t m_read = 0; ///< how much of `pending_` is done with
    size_t m_preamble = 0;
    int m_parts = 0;
    State m_state = State::preamble;
};

} // namespace quillo::server
