list(APPEND SERVICES_SOURCES AudioServiceProtocol.cpp AudioLevel.cpp AudioChunker.cpp SampleConverter.cpp
  AUHALCaptureContext.cpp AUHALAudioService.cpp)
list(APPEND SERVICES_LINK PkgConfig::Soxr)
