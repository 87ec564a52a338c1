list(APPEND SERVICES_SOURCES AudioServiceProtocol.cpp AudioLevel.cpp AudioChunker.cpp SampleConverter.cpp
  AUHALCaptureContext.cpp AudioCaptureBackend.cpp CapturingAudioService.cpp AUHALAudioService.cpp)
list(APPEND SERVICES_LINK PkgConfig::Soxr)
# A library of its own: who does not use the second backend does not load Qt Multimedia.
quillo_library(ServicesAudioEngine FOLDER Services SOURCES AudioService.cpp LINK QuilloServices Qt6::Multimedia)
