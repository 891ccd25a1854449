#pragma once

#include "erase/process.h"
#include "storage/drive.h"

#include <string>

/// Overwrites a whole drive with a pattern, or only reads it when emulating, by running the
/// helper program `driver`.
class Wiper : public Process {
    Q_OBJECT

public:
    /// `pattern` is the pattern's text form; the helper gets it unchanged.
    Wiper(int id, const Drive& drive, const std::string& pattern);

    [[nodiscard]] const Drive& drive() const;

    void start(bool emulate);

    /// The helper's "progress: " and "error: " lines. After an error line the job has failed,
    /// whatever the helper does next.
    void updateStandardOutput(const QString& line) override;

    /// The percentage as the helper printed it, not checked.
    virtual void updateProgress(int percent);

private:
    Drive drive_;
    std::string pattern_;
};
