#pragma once

/// The first thing that a helper program does: it makes sure that it ends with the program
/// that started it, and that its standard streams are open. Throws Failure.
void prepare_process();
