#include "diskservice/source/block_device_source.h"

#include "diskservice/source/boot_medium.h"
#include "diskservice/source/device_node.h"
#include "diskservice/source/drive_identity.h"
#include "diskservice/source/drive_names.h"
#include "diskservice/source/kernel_devices.h"
#include "diskservice/source/missing_drives.h"
#include "diskservice/source/sysfs.h"
#include "diskservice/source/system_drives.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace {

std::uint32_t number_of(const KernelDevice& device, const std::string& property)
{
    const std::string text = device.property(property);
    std::uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

DeviceRecord record_of(const KernelDevice& device)
{
    DeviceRecord record;
    record.deviceFile = device.deviceFile();
    record.blockDevice = makedev(number_of(device, "MAJOR"), number_of(device, "MINOR"));
    record.sizeBytes = number_in(device.folder / "size") * kSysfsUnitBytes;
    record.isReadOnly = number_in(device.folder / "ro") != 0;
    return record;
}

// Everything that a write, another medium or other partitions change. The counters are laid
// down in the kernel's Documentation/block/stat.rst.
std::string stamp_of(const KernelDevice& drive)
{
    constexpr std::size_t kWrites = 4;
    constexpr std::size_t kWrittenSectors = 6;
    constexpr std::size_t kDiscards = 11;
    const std::string sequence = first_line(drive.folder / "diskseq");
    std::istringstream line(first_line(drive.folder / "stat"));
    const std::vector<std::string> counters{std::istream_iterator<std::string>(line), {}};
    return sequence.empty() || counters.size() <= kDiscards
               ? ""
               : sequence + ' ' + first_line(drive.folder / "size") + ' ' + counters[kWrites] +
                     ' ' + counters[kWrittenSectors] + ' ' + counters[kDiscards];
}

DeviceRecord partition_of(const DeviceRecord& drive, const KernelDevice& partition)
{
    DeviceRecord record = record_of(partition);
    record.blockSizeBytes = drive.blockSizeBytes;
    record.diskSequence = drive.diskSequence;
    record.isRemovable = drive.isRemovable;
    record.isSystemInternal = drive.isSystemInternal;
    record.isReadOnly = record.isReadOnly || drive.isReadOnly;
    PartitionEntry entry;
    entry.number = static_cast<int>(number_in(partition.folder / "partition"));
    entry.offsetBytes = number_in(partition.folder / "start") * kSysfsUnitBytes;
    entry.sizeBytes = record.sizeBytes;
    record.place = PartitionPlace{drive.deviceFile, entry};
    return record;
}

// Whether it can be taken out of the computer: a USB drive that says to be of another kind ("ata"),
// and memory cards, are not marked as removable.
bool is_external(const KernelDevice& drive, const DeviceRecord& record)
{
    return record.isRemovable || record.identity.connectionInterface == "usb" ||
           drive.isBelow("usb") || first_line(drive.folder / "device/type") == "SD";
}

ProbeRequest request_for(const std::string& root, const KernelDevice& drive,
                         const std::vector<const KernelDevice*>& partitions)
{
    ProbeRequest request;
    request.root = root;
    request.isOptical = drive.name().starts_with("sr");
    request.isFloppy = drive.name().starts_with("fd");
    // To open a floppy drive counts as a change of its disk.
    request.stamp = request.isFloppy ? "floppy" : stamp_of(drive);
    request.drive = record_of(drive);
    DeviceRecord& record = request.drive;
    record.blockSizeBytes =
        static_cast<std::uint32_t>(number_in(drive.folder / "queue/logical_block_size"));
    if (const std::uint64_t sequence = number_in(drive.folder / "diskseq"); sequence != 0) {
        record.diskSequence = sequence;
    }
    record.identity = identity_of(drive);
    record.isOpticalDisc = request.isOptical;
    record.isRemovable = number_in(drive.folder / "removable") != 0;
    record.isSystemInternal = !is_external(drive, record);
    for (const KernelDevice* partition : partitions) {
        request.partitions.push_back(partition_of(record, *partition));
        request.stamp += request.stamp.empty() ? "" : ' ' + partition->name();
    }
    return request;
}

// Where and how large a partition is, the kernel knows best; the rest is in the table.
void complete_entry(PartitionEntry& entry, const PartitionTable& table)
{
    const auto found = std::ranges::find(table.entries, entry.number, &PartitionEntry::number);
    if (found != table.entries.end()) {
        const PartitionEntry place = std::exchange(entry, *found);
        entry.offsetBytes = place.offsetBytes;
        entry.sizeBytes = place.sizeBytes;
    }
}

// Adds the drive and its partitions, with what was found if anything was.
void add_devices(std::vector<DeviceRecord>& devices, ProbeRequest request,
                 const DriveFindings& findings)
{
    request.drive.table = findings.table;
    if (!request.drive.table && !request.partitions.empty()) {
        request.drive.table.emplace(); // The kernel could read it.
        for (const DeviceRecord& partition : request.partitions) {
            request.drive.table->entries.push_back(partition.place->entry);
        }
    }
    request.drive.sizeBytes = findings.sizeBytes;
    request.drive.isOpticalDisc = request.isOptical && findings.sizeBytes != 0;
    for (DeviceRecord& partition : request.partitions) {
        complete_entry(partition.place->entry, *request.drive.table);
    }
    const std::size_t first = devices.size();
    devices.push_back(std::move(request.drive));
    std::ranges::move(request.partitions, std::back_inserter(devices));
    for (std::size_t i = first; i < devices.size(); ++i) {
        const auto content = findings.contents.find(devices[i].deviceFile);
        devices[i].content = content == findings.contents.end() ? Content() : content->second;
    }
}

// What is known of a drive without opening it. The kernel does not know whether a floppy drive
// has a disk in it; the size that it gives is none.
DriveFindings no_findings(const ProbeRequest& request)
{
    DriveFindings findings;
    findings.sizeBytes = request.isFloppy ? 0 : request.drive.sizeBytes;
    return findings;
}

// By the names of drives.
using PartitionsByDrive = std::map<std::string, std::vector<const KernelDevice*>>;

PartitionsByDrive partitions_by_drive(const std::vector<KernelDevice>& all)
{
    PartitionsByDrive partitions;
    for (const KernelDevice& device : all) {
        if (device.isPartition()) {
            partitions[device.folder.parent_path().filename()].push_back(&device);
        }
    }
    return partitions;
}

MediumSigns signs_of_udev(const KernelDevice& drive, const PartitionsByDrive& partitions)
{
    const auto contentOf = [](const KernelDevice& device) {
        return Content{"", device.property("ID_FS_TYPE"), "", device.property("ID_FS_UUID"),
                       device.property("ID_FS_LABEL")};
    };
    MediumSigns signs;
    signs.addFileSystem(contentOf(drive), false);
    if (const auto found = partitions.find(drive.name()); found != partitions.end()) {
        for (const KernelDevice* partition : found->second) {
            signs.addFileSystem(contentOf(*partition), true);
            signs.addPartitionLabel(partition->property("ID_PART_ENTRY_NAME"));
        }
    }
    return signs;
}

MediumSigns signs_in(const ProbeRequest& request, const DriveFindings& findings)
{
    MediumSigns signs;
    signs.addFileSystem({"", "iso9660", "", findings.discImageUuid, ""}, false);
    for (const auto& [deviceFile, content] : findings.contents) {
        signs.addFileSystem(content, deviceFile != request.drive.deviceFile);
    }
    if (findings.table) {
        for (const PartitionEntry& entry : findings.table->entries) {
            signs.addPartitionLabel(entry.label);
        }
    }
    return signs;
}

// The reasons of the drives' first names, whichever names they were given for.
std::map<std::string, std::string> by_first_names(const std::map<std::string, std::string>& reasons,
                                                  const std::map<std::string, std::string>& names)
{
    std::map<std::string, std::string> result;
    for (const auto& [name, reason] : reasons) {
        if (const auto found = names.find(name); found != names.end()) {
            result.emplace(found->second, reason);
        }
    }
    return result;
}

} // namespace

std::vector<DeviceRecord> BlockDeviceSource::operator()()
{
    std::vector<DeviceRecord> devices;
    for (const std::string& problem : missing_drives(root_)) {
        notices_.add(problem);
    }
    try {
        devices = lookAtAll();
    } catch (const std::runtime_error& failure) {
        notices_.add(failure.what());
    }
    notices_.tell();
    return devices;
}

std::vector<DeviceRecord> BlockDeviceSource::lookAtAll()
{
    BootMedium medium(root_);
    if (medium.isUnnamed()) {
        notices_.add("vantrelle.medium: the boot loader could not tell what it was loaded from");
    }
    const std::vector<ProbeRequest> requests = listDrives(medium);
    const auto allFindings = prober_.probe(requests);
    std::vector<std::string> reasons(requests.size());
    for (std::size_t i = 0; i < requests.size(); ++i) {
        if (allFindings[i]) {
            const MediumSigns signs = signs_in(requests[i], *allFindings[i]);
            reasons[i] = medium.reasonFor(requests[i].drive, signs);
        }
    }
    std::vector<DeviceRecord> devices;
    for (std::size_t i = 0; i < requests.size(); ++i) { // All signs are known now.
        if (!allFindings[i] && medium.canBe(requests[i].drive)) {
            reasons[i] = "does not answer yet, and may be what the running system was started from";
        }
        if (reasons[i].empty()) {
            addDrive(devices, requests[i], allFindings[i].get());
        } else {
            leaveOut(requests[i].drive.deviceFile, reasons[i]);
        }
    }
    return devices;
}

void BlockDeviceSource::addDrive(std::vector<DeviceRecord>& devices, const ProbeRequest& request,
                                 const DriveFindings* findings)
{
    if (!findings) {
        notices_.add(request.drive.deviceFile + ": does not answer: listed without its contents");
    } else {
        for (const std::string& problem : findings->problems) {
            notices_.add(problem);
        }
    }
    add_devices(devices, request, findings ? *findings : no_findings(request));
}

// Every device that is a drive, whatever it is used for.
std::vector<KernelDevice> BlockDeviceSource::wholeDrives(const std::vector<KernelDevice>& all)
{
    std::vector<KernelDevice> drives;
    for (const KernelDevice& device : all) {
        if (device.isPartition()) {
            continue;
        }
        std::string reason = reason_for_no_drive(device);
        if (reason.empty()) {
            reason = reason_for_no_node(root_, record_of(device));
        }
        if (reason.empty()) {
            drives.push_back(device);
        } else {
            leaveOut(device.deviceFile(), reason);
        }
    }
    return drives;
}

// Every drive that may be opened.
std::vector<ProbeRequest> BlockDeviceSource::listDrives(BootMedium& medium)
{
    const std::vector<KernelDevice> all = kernel_devices(root_);
    const std::vector<KernelDevice> drives = wholeDrives(all);
    PartitionsByDrive partitions = partitions_by_drive(all);
    const auto names = first_names(drives);
    const auto ofSystem = by_first_names(system_drives(root_), names);
    std::vector<ProbeRequest> requests;
    for (const KernelDevice& drive : drives) {
        ProbeRequest request = request_for(root_, drive, partitions[drive.name()]);
        const std::string& first = names.at(drive.name());
        std::string reason = medium.reasonFor(request.drive, signs_of_udev(drive, partitions));
        if (const auto found = ofSystem.find(first); found != ofSystem.end()) {
            reason = found->second;
        } else if (first != drive.name()) {
            reason = "the same drive as /dev/" + first + ", over another way";
        }
        if (reason.empty()) {
            requests.push_back(std::move(request));
        } else {
            leaveOut(request.drive.deviceFile, reason);
        }
    }
    return requests;
}

void BlockDeviceSource::leaveOut(const std::string& deviceFile, const std::string& reason)
{
    notices_.add(deviceFile + ": left out: " + reason);
}
