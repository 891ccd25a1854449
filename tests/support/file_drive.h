#pragma once

#include "storage/drive.h"

#include <QFile>
#include <QTemporaryDir>

/// A drive that is a sparse file.
struct FileDrive {
    explicit FileDrive(unsigned long long sectors, unsigned long long sectorSize = 512)
        : file(directory.filePath("drive"))
    {
        drive.setDevice(file.fileName().toStdString());
        drive.setSectors(sectors);
        drive.setSectorSize(sectorSize);
        file.open(QIODevice::ReadWrite | QIODevice::Unbuffered);
        file.resize(static_cast<qint64>(sectors * sectorSize));
    }

    QFile& at(unsigned long long lba)
    {
        file.seek(static_cast<qint64>(lba * drive.sectorSize()));
        return file;
    }

    QTemporaryDir directory;
    QFile file;
    Drive drive;
};
