# Recordings on disk, and the transcription of those that a live session could not finish.
list(APPEND SERVICES_SOURCES
  AudioFileWriter.cpp
  AudioStorageManager.cpp
  FileTransfer.cpp
  JsonNesting.cpp
  PCMFiles.cpp
  PendingAudioFiles.cpp
  PendingAudioMetadata.cpp
  PrivateFile.cpp
  RecordingsInUse.cpp
  TranscriptionFileClient.cpp
  TranscriptionFileClientError.cpp
  TranscriptionFileResponse.cpp)
list(APPEND SERVICES_MOC AudioStorageManager.h)
list(APPEND SERVICES_LINK Qt6::Network nlohmann_json::nlohmann_json)
# A library of its own, as it alone needs the history.
quillo_library(ServicesPending FOLDER Services
  SOURCES PendingQueue.cpp PendingQueueTranscription.cpp PendingRecords.cpp PendingRepair.cpp
          PendingTranscriptionManager.cpp
  LINK QuilloServices QuilloData)
