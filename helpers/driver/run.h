#pragma once

struct DriverArguments;

/// Overwrites or reads the whole device, showing "progress: " lines on standard output.
/// Throws Failure unless every byte was written and flushed, or read.
void run_driver(const DriverArguments& arguments);
