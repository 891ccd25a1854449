#include "diskservice/source/block_device_source.h"

#include "diskservice/source/drive_identity.h"
#include "diskservice/source/kernel_devices.h"
#include "diskservice/source/sysfs.h"
#include "diskservice/source/system_drives.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace {

const char* const kIsMedium = "the running system was started from it (vantrelle.medium)";

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
    record.isSystemInternal = !record.isRemovable && record.identity.connectionInterface != "usb";
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

} // namespace

std::vector<DeviceRecord> BlockDeviceSource::operator()()
{
    std::vector<DeviceRecord> devices;
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
    const std::string medium = named_medium(root_);
    std::vector<ProbeRequest> requests = listDrives(medium);
    const auto allFindings = prober_.probe(requests);
    std::vector<DeviceRecord> devices;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const std::string& deviceFile = requests[i].drive.deviceFile;
        const DriveFindings findings = allFindings[i] ? *allFindings[i] : no_findings(requests[i]);
        if (!medium.empty() && findings.uuids.contains(medium)) {
            leaveOut(deviceFile, kIsMedium);
            continue;
        }
        if (!allFindings[i] && !medium.empty() && !requests[i].drive.isSystemInternal) {
            leaveOut(deviceFile, "does not answer, and may be what the system was started from");
            continue;
        }
        if (!allFindings[i]) {
            notices_.add(deviceFile + ": does not answer: listed without its contents");
        }
        for (const std::string& problem : findings.problems) {
            notices_.add(problem);
        }
        add_devices(devices, std::move(requests[i]), findings);
    }
    return devices;
}

// Every drive that may be opened.
std::vector<ProbeRequest> BlockDeviceSource::listDrives(const std::string& medium)
{
    const std::vector<KernelDevice> all = kernel_devices(root_);
    const std::map<std::string, std::string> ofSystem = system_drives(root_);
    std::set<std::string> ofMedium;
    std::map<std::string, std::vector<const KernelDevice*>> partitions;
    for (const KernelDevice& device : all) {
        const bool isPartition = device.isPartition();
        const std::string drive =
            isPartition ? device.folder.parent_path().filename().string() : device.name();
        if (isPartition) {
            partitions[drive].push_back(&device);
        }
        if (!medium.empty() && device.property("ID_FS_UUID") == medium) {
            ofMedium.insert(drive);
        }
    }

    std::vector<ProbeRequest> requests;
    for (const KernelDevice& device : all) {
        if (device.isPartition()) {
            continue;
        }
        const std::string name = device.name();
        if (const std::string reason = reason_for_no_drive(device); !reason.empty()) {
            leaveOut(device.deviceFile(), reason);
        } else if (const auto found = ofSystem.find(name); found != ofSystem.end()) {
            leaveOut(device.deviceFile(), found->second);
        } else if (ofMedium.contains(name)) {
            leaveOut(device.deviceFile(), kIsMedium);
        } else {
            requests.push_back(request_for(root_, device, partitions[name]));
        }
    }
    return requests;
}

void BlockDeviceSource::leaveOut(const std::string& deviceFile, const std::string& reason)
{
    notices_.add(deviceFile + ": left out: " + reason);
}
