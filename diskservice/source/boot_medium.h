#pragma once

#include "diskservice/source/device_record.h"

#include <optional>
#include <set>
#include <string>

/// What a drive shows that tells whether the running system was started from it.
class MediumSigns {
public:
    /// Takes in a file system on the whole drive or, if so, in a partition of it. A disc image
    /// (iso9660) lies on a whole drive; in a partition it is a copy that nothing starts from.
    void addFileSystem(const Content& content, bool isInPartition);
    void addPartitionLabel(const std::string& label) { partitionLabels_.insert(label); }

    [[nodiscard]] bool hasUuid(const std::string& uuid) const;
    /// Whether it is a stick that starts one of several images that it keeps as files.
    [[nodiscard]] bool isOfSeveralImages() const { return partitionLabels_.contains("VTOYEFI"); }

private:
    std::set<std::string> uuids_;
    std::set<std::string> partitionLabels_;
};

/// The medium of a system that runs from memory, where no mount leads to it. Its boot loader looks
/// up the UUID of the file system that it was itself loaded from, and adds to the kernel's command
/// line "vantrelle.medium=UUID". A system that is started otherwise, such as over the network, has
/// no such word and no medium.
class BootMedium {
public:
    /// Reads root/proc/cmdline.
    explicit BootMedium(const std::string& root);

    /// Whether the boot loader found no UUID where it was loaded from.
    [[nodiscard]] bool isUnnamed() const { return uuid_ && uuid_->empty(); }

    /// Why the drive with these signs is the medium; empty when they do not say so. A drive that
    /// is part of the computer never is: it can hold a copy, and is to be erased with it.
    [[nodiscard]] std::string reasonFor(const DeviceRecord& drive, const MediumSigns& signs);
    /// Whether a drive whose signs are not known can be the medium: not once another one was.
    [[nodiscard]] bool canBe(const DeviceRecord& drive) const;

private:
    std::optional<std::string> uuid_;
    bool isFound_ = false;
};
