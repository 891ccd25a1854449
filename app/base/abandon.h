#pragma once

class QObject;
class QProcess;

// The end of child-process objects. Destroying one whose process still runs would wait for the
// process to end.

/// Lets go of the object without destroying it: it stays for the rest of the run unless it is
/// deleted on its own.
void abandon(QObject* object);

/// Kills the child if it still runs, and never waits for it: the event loop deletes the object
/// once the child has ended. Safe below a signal of the child.
void kill_and_abandon(QProcess* child);
