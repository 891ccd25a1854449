#pragma once

class QObject;

/// Lets go of a child-process object whose process may still run, without destroying it:
/// its destructor would wait for the process to end. The object stays for the rest of the
/// run unless it is deleted on its own.
void abandon(QObject* object);
