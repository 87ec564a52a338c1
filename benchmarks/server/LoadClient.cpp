#include "LoadClient.h"

#include "ServerUnderLoad.h"

#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace quillo::benchmark {
namespace {

constexpr int chunkMilliseconds = 100;

/// A masked text frame; the mask is zero, which the protocol allows and the server still has to apply.
std::string frame(const std::string& text) {
    std::string bytes = "\x81";
    if (text.size() < 126) {
        bytes += static_cast<char>(0x80 | text.size());
    } else {
        bytes += static_cast<char>(0x80 | 126);
        bytes += static_cast<char>(text.size() >> 8);
        bytes += static_cast<char>(text.size() & 0xff);
    }
    bytes.append(4, '\0');
    return bytes + text;
}

const std::string& chunkFrame() {
    // 3200 bytes of silence: base64 of zeros is a run of A, with one = since 3200 leaves two bytes over.
    static const std::string bytes = frame(R"({"type":"audio_chunk","data":")" + std::string(4267, 'A') + "=\"}");
    return bytes;
}

} // namespace

LoadClient::LoadClient(uint16_t port, const std::string& token) : socket_(connectTo(port)) {
    const std::string request = "GET /ws/v3/transcribe?token=" + token +
                                " HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                                "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
    send(request);
    char c = 0;
    while (received_.find("\r\n\r\n") == std::string::npos && ::recv(socket_, &c, 1, 0) == 1)
        received_ += c;
    if (!received_.starts_with("HTTP/1.1 101")) {
        ::close(socket_);
        throw std::runtime_error("the upgrade was refused: " + received_);
    }
    received_.clear();
}

LoadClient::~LoadClient() { ::close(socket_); }

void LoadClient::send(const std::string& text) {
    for (size_t sent = 0; sent < text.size();) {
        const auto count = ::send(socket_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return; // receiving reports the closed connection
        sent += static_cast<size_t>(count);
    }
}

void LoadClient::start() { send(frame(R"({"type":"start_session","languages":["en"],"mode":"streaming"})")); }

void LoadClient::sendChunk(Clock::time_point now) {
    send(chunkFrame());
    ++chunks_;
    if (!unanswered_)
        unanswered_ = now;
}

void LoadClient::end() { send(frame(R"({"type":"end_session"})")); }

bool LoadClient::receive(Clock::time_point now, LoadResult& result) {
    char block[16384];
    for (;;) {
        const auto count = ::recv(socket_, block, sizeof block, MSG_DONTWAIT);
        if (count == 0)
            return false;
        if (count < 0)
            break;
        received_.append(block, static_cast<size_t>(count));
    }
    while (received_.size() >= 2) {
        size_t size = static_cast<unsigned char>(received_[1]) & 0x7f;
        size_t begin = 2;
        if (size == 126) {
            if (received_.size() < 4)
                break;
            size = static_cast<size_t>(static_cast<unsigned char>(received_[2])) << 8 |
                   static_cast<unsigned char>(received_[3]);
            begin = 4;
        }
        if (received_.size() < begin + size)
            break;
        handle(received_.substr(begin, size), now, result);
        received_.erase(0, begin + size);
    }
    return true;
}

void LoadClient::handle(const std::string& message, Clock::time_point now, LoadResult& result) {
    const auto is = [&](const char* type) { return message.starts_with(std::string("{\"type\":\"") + type + '"'); };
    if (is("session_started")) {
        ++result.started;
    } else if (is("partial_transcript") || is("final_transcript")) {
        if (unanswered_)
            result.latencies.push_back(std::chrono::duration<double, std::milli>(now - *unanswered_).count());
        unanswered_.reset();
    } else if (is("session_ended")) {
        const std::string wanted = "\"duration_ms\":" + std::to_string(chunks_ * chunkMilliseconds) + ",";
        result.held += message.find(wanted) != std::string::npos ? 1 : 0;
        result.chunks += chunks_;
    }
}

} // namespace quillo::benchmark
