#pragma once

#include <string>

/// Logs the line "module(line)" with the text behind it. Every program defines it for itself:
/// the application logs to its debug log (app/base/debug_log.h), `driver` to the standard error
/// stream. A file that logs in no other way needs nothing of the toolkit.
void dbg_line(const char* module, int line, const std::string& text);
