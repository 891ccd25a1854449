#pragma once

#include "erase/process.h"
#include "storage/drive.h"

/// Gives a drive its bootable partition, whose logo screen is a picture, by running the
/// helper program `format`.
class Formatter : public Process {
    Q_OBJECT

public:
    Formatter(int id, const Drive& drive);

    [[nodiscard]] const Drive& drive() const;

    /// `imagePath` is the picture's PNG file.
    void start(bool emulate, const QString& imagePath);

private:
    Drive drive_;
};
