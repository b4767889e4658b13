#pragma once
// whisper.cpp and ggml write their own diagnostics to stderr unless told otherwise. This sends
// them to our logger under the category "whisper.cpp", one line per message: warnings and errors
// (why a load or a run failed) at their level, the rest (model-load details) at debug.

namespace corvane {

// Installs the route for the whole process (the library keeps a single log callback). Idempotent;
// WhisperImpl calls it before it loads a model.
void routeWhisperLogs();

}  // namespace corvane
