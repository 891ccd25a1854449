#pragma once

/// Restarts or powers off this computer, at once and without asking. Blocks for up to 30
/// seconds; a failure is only logged.
void system_reboot();
void system_halt();

/// Runs a program without arguments and logs what it prints. A program that outlives the
/// wait of 30 seconds keeps running.
void run_command(const char* command);
