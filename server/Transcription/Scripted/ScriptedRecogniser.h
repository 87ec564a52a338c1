#pragma once

#include "Transcription/Recogniser.h"
#include "Transcription/Scripted/Script.h"

#include <memory>

namespace quillo::server {

/// A recogniser that answers by a script, depending only on the number of samples: for tests, load measurements and
/// trying out a client. Calls its listeners on its own thread.
std::unique_ptr<Recogniser> makeScriptedRecogniser(Script script);

} // namespace quillo::server
