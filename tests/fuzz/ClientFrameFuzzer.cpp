// Feeds the server's decoder of a client's frames with what libFuzzer thinks up.

#include "Transport/ProtocolMessages.h"

using namespace quillo::server;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto message = parseClientMessage({reinterpret_cast<const char*>(data), size});
    // What is said about a bad frame goes back to the client, and must be sendable whatever was in it.
    if (const auto* invalid = std::get_if<message::Invalid>(&message)) {
        const auto answer = parseJson(errorMessage("INVALID_MESSAGE", "text", invalid->reason));
        if (!answer)
            __builtin_trap();
    }
    return 0;
}
