// The library's only way to say anything: the platform log on Android,
// "E/<tag>: <message>" on stderr elsewhere. Start-up and JSON code only; the
// per-sample path never logs.
#pragma once

namespace magcal {

// Logs at priority 6 (error) under `tag`, printf-style.
void log_error(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Logs `message` under `tag` and aborts the process.
[[noreturn]] void log_fatal(const char* tag, const char* message);

}  // namespace magcal
