# The connection to the server and the state of the network.
list(APPEND SERVICES_SOURCES
  NetworkMonitorService.cpp
  ServerMessageDecoding.cpp
  ServerMessageEncoding.cpp
  ServerResponse.cpp
  SessionTexts.cpp
  TrustedNetwork.cpp
  WebSocketDelegate.cpp
  WebSocketService.cpp
  WebSocketServiceActor.cpp
  WebSocketServiceProtocol.cpp)
list(APPEND SERVICES_LINK Qt6::Network Qt6::WebSockets nlohmann_json::nlohmann_json)
