#pragma once

#include <future>
#include <string>

/// Direct access to a drive by sector number, for the manual tools. Reads and writes go
/// through the system's cache. Every failure is one log line and a false or zero result;
/// nothing is thrown.
class Driver {
public:
    enum Mode { Read = 0, Write = 1, ReadWrite = 2 };

    /// Opens nothing. The sector size, in bytes, must not be 0.
    Driver(const char* device, unsigned long long sectorSize);
    /// Closes the device.
    virtual ~Driver();
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    /// Opens the device and measures it; an open one is closed first. Opening for writing
    /// creates a regular file where there is nothing, but never below /dev: there it is a drive
    /// that has gone.
    [[nodiscard]] bool init(Mode mode);

    /// Bytes, as measured by init().
    [[nodiscard]] unsigned long long size() const;
    /// Bytes.
    [[nodiscard]] unsigned long long sectorSize() const;

    /// Transfer whole sectors in one call; `buffer` holds `count` of them. Give the number
    /// of whole sectors transferred, which a short transfer makes smaller, or 0.
    [[nodiscard]] unsigned long long readSectors(unsigned long long lba, unsigned long long count,
                                                 void* buffer);
    [[nodiscard]] unsigned long long writeSectors(unsigned long long lba, unsigned long long count,
                                                  const void* buffer);

    /// The same by bytes.
    [[nodiscard]] unsigned long long readStd(unsigned long long offset, void* buffer,
                                             unsigned long long length);
    [[nodiscard]] unsigned long long writeStd(unsigned long long offset, const void* buffer,
                                              unsigned long long length);

    /// Brings what was written to the medium, on a thread of its own, and gives 0 or the errno
    /// value. That thread keeps the device open, whatever becomes of this object: closing a device
    /// would wait for its cache.
    [[nodiscard]] std::future<int> flush() const;

    /// Fails when nothing is open.
    bool close();

private:
    [[nodiscard]] bool measure();
    [[nodiscard]] bool seek(unsigned long long offset);

    std::string path_;
    unsigned long long sectorSize_;
    int descriptor_ = -1;
    unsigned long long size_ = 0;
};
