#pragma once

/// Whether a line of `tag` at `priority` ('V', 'D', 'I', 'W', 'E', 'A') may be written to the
/// Android log. Thread-safe.
extern "C" bool zebcam_testLog(char const* tag, char priority);
