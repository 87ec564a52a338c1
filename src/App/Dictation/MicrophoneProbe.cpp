#include "App/Dictation/MicrophoneProbe.h"

#include "Features/ErrorTexts/ErrorTexts.h"

namespace quillo {

void MicrophoneProbe::start(OnLevel onLevel, OnFailure onFailure) {
    stop();
    m_onFailure = onFailure;
    m_listening = m_tasks.run(QStringLiteral("microphone test"),
                              [&audio = m_audio, onLevel = std::move(onLevel),
                               onFailure = std::move(onFailure)](std::stop_token stop) -> Task<> {
                                  UserMessage failure;
                                  try {
                                      auto chunks = co_await audio.startCapture();
                                      while (const auto chunk = co_await chunks.next(stop))
                                          if (!stop.stop_requested())
                                              onLevel(chunk->level);
                                  } catch (const AudioServiceError& error) {
                                      failure = errorTexts::of(error);
                                  }
                                  if (!failure.isEmpty() && !stop.stop_requested())
                                      onFailure(failure);
                              });
}

void MicrophoneProbe::stop() {
    if (!m_listening.isRunning())
        return;
    m_listening.cancel();
    // Stop at once, not when the task notices: a dictation may need the microphone now.
    m_audio.stopCapture();
}

void MicrophoneProbe::giveWay(const UserMessage& reason) {
    if (!m_listening.isRunning())
        return;
    stop();
    m_onFailure(reason);
}

} // namespace quillo
