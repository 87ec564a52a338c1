#include "Support/MockWebSocketService.h"

#include "Support/Async.h"

using namespace quillo;
using namespace quillo::test;

namespace {

Task<std::vector<ServerMessage>> readAll(AsyncStream<ServerMessage> stream) {
    std::vector<ServerMessage> messages;
    while (auto message = co_await stream.next())
        messages.push_back(*std::move(message));
    co_return messages;
}

TEST(MockWebSocketService, YieldsAsTheRealServiceDoes) {
    MockWebSocketService service;
    service.connectErrors.emplace_back(WebSocketError::Code::connectionFailed, u"bad"_qs, 401);
    EXPECT_THROW(await(service.connect()), WebSocketError);
    EXPECT_THROW(await(service.endSession()), WebSocketError);
    await(service.connect());
    auto stream = service.receiveMessages();
    await(service.sendAudio({.sequence = 3}, true));
    service.yield(server::SessionStarted{u"s"_qs});
    service.lose(u"gone"_qs);
    const auto messages = await(readAll(std::move(stream)));
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_TRUE(std::holds_alternative<server::Connected>(messages[0]));
    EXPECT_EQ(std::get<server::ConnectionLost>(messages[2]).error, u"Failed to receive message: gone");
    EXPECT_FALSE(service.isConnected());
    EXPECT_EQ(service.audio.at(0).sequence, 3);
}

} // namespace
