# Recordings on disk, and the transcription of those that a live session could not finish.
list(APPEND SERVICES_SOURCES
  AudioFileWriter.cpp
  AudioStorageManager.cpp
  PCMFiles.cpp
  PendingAudioFiles.cpp
  PendingAudioMetadata.cpp
  PrivateFile.cpp
  RecordingsInUse.cpp)
list(APPEND SERVICES_MOC AudioStorageManager.h)
list(APPEND SERVICES_LINK nlohmann_json::nlohmann_json)
