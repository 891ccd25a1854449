#pragma once

#include <string>
#include <vector>

/// A whole drive of this computer, as get_drives() found it: a plain value. Texts are
/// bytes as the drive or the disk service reported them and may hold anything.
class Drive {
public:
    class Partition;

    /// Device node path of the whole drive.
    [[nodiscard]] const std::string& device() const { return device_; }
    void setDevice(const std::string& device) { device_ = device; }

    [[nodiscard]] const std::string& model() const { return model_; }
    void setModel(const std::string& model) { model_ = model; }

    /// The serial text that the drive reports.
    [[nodiscard]] const std::string& serial() const { return serial_; }
    void setSerial(const std::string& serial) { serial_ = serial; }

    /// Whole sectors; the drive's size in bytes is sectors() times sectorSize().
    [[nodiscard]] unsigned long long sectors() const { return sectors_; }
    void setSectors(unsigned long long sectors) { sectors_ = sectors; }

    /// Bytes per sector.
    [[nodiscard]] unsigned long long sectorSize() const { return sectorSize_; }
    void setSectorSize(unsigned long long sectorSize) { sectorSize_ = sectorSize; }

    /// The kernel's number of this very attachment of a drive (ioctl BLKGETDISKSEQ), which no
    /// other attachment gets; 0 when the disk service does not know it.
    [[nodiscard]] unsigned long long diskSequence() const { return diskSequence_; }
    void setDiskSequence(unsigned long long number) { diskSequence_ = number; }

    /// The partitions that carry a file system, ascending by device path.
    [[nodiscard]] const std::vector<Partition>& partitions() const { return partitions_; }
    void setPartitions(const std::vector<Partition>& partitions);

private:
    std::string device_;
    std::string model_;
    std::string serial_;
    unsigned long long sectors_ = 0;
    unsigned long long sectorSize_ = 512;
    unsigned long long diskSequence_ = 0;
    std::vector<Partition> partitions_;
};

/// A partition of a drive: a plain value.
class Drive::Partition {
public:
    /// Device node path of the partition.
    [[nodiscard]] const std::string& device() const { return device_; }
    void setDevice(const std::string& device) { device_ = device; }

    /// Bytes.
    [[nodiscard]] unsigned long long size() const { return size_; }
    void setSize(unsigned long long size) { size_ = size; }

    /// What a person may know it by: file-system label and type.
    [[nodiscard]] const std::string& comment() const { return comment_; }
    void setComment(const std::string& comment) { comment_ = comment; }

private:
    std::string device_;
    unsigned long long size_ = 0;
    std::string comment_;
};

inline void Drive::setPartitions(const std::vector<Partition>& partitions)
{
    partitions_ = partitions;
}
