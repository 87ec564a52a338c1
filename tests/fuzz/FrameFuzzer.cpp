// Feeds the decoder of server frames with what libFuzzer thinks up.

#include "Services/Protocol/ServerMessageDecoding.h"

using namespace quillo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray frame(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    SessionTexts texts;
    QStringList lines;
    if (const auto response = ServerResponse::decode(frame))
        decodeServerMessage(*response, texts, lines);
    return 0;
}
