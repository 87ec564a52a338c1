#pragma once

#include "Transcription/Recogniser.h"
#include "Transcription/Scripted/Script.h"

#include <memory>

namespace quillo::server {

/// A recogniser that hears nothing and answers by a script, by the number of samples that reached it: for tests, load
/// measurements and trying a client out. Its listeners are called on one thread of its own.
std::unique_ptr<Recogniser> makeScriptedRecogniser(Script script);

} // namespace quillo::server
