#include "diskservice/source/drive_names.h"

#include "diskservice/source/drive_identity.h"
#include "diskservice/source/sysfs.h"

#include <filesystem>
#include <tuple>

namespace {

enum class Transport { Other, Sas, FibreChannel, Nvme };

// The kernel names the objects of a transport so (drivers/scsi/scsi_transport_sas.c and _fc.c).
Transport transport_of(const KernelDevice& drive)
{
    if (drive.name().starts_with("nvme")) {
        return Transport::Nvme;
    }
    if (drive.isBelow("rport-")) {
        return Transport::FibreChannel;
    }
    const bool isSas = drive.isBelow("end_device-") ||
                       std::filesystem::exists(drive.folder / "device/sas_address");
    return isSas && first_line(drive.folder / "device/vendor") != "ATA" ? Transport::Sas
                                                                        : Transport::Other;
}

// Empty when it is none that a maker gives once (SPC-4, 7.8.6.5 and .6): no such kind of name, or
// one that was never filled in.
std::string unit_name(const KernelDevice& drive, Transport transport)
{
    constexpr std::size_t kOwnDigits = 5; // After "eui." or "naa." and a digit for its kind.
    const bool isNvme = transport == Transport::Nvme;
    const std::string name = first_line(drive.folder / (isNvme ? "wwid" : "device/wwid"));
    const bool isKind = name.starts_with("naa.") || name.starts_with("eui.");
    return isKind && name.find_first_not_of('0', kOwnDigits) != std::string::npos ? name : "";
}

// What all names of one drive have in common.
using Characteristics = std::tuple<Transport, std::string, std::string, std::string, std::uint64_t>;

} // namespace

std::map<std::string, std::string> first_names(const std::vector<KernelDevice>& drives)
{
    std::map<Characteristics, std::string> seen;
    std::map<std::string, std::string> names;
    for (const KernelDevice& drive : drives) {
        const Transport transport = transport_of(drive);
        const std::string unit = unit_name(drive, transport);
        const DriveIdentity identity = identity_of(drive);
        const bool isOneOfAKind = transport != Transport::Other && !unit.empty();
        names[drive.name()] = drive.name();
        if (isOneOfAKind && !identity.serial.empty()) {
            const Characteristics characteristics{transport, unit, identity.serial, identity.model,
                                                  number_in(drive.folder / "size")};
            names[drive.name()] = seen.emplace(characteristics, drive.name()).first->second;
        }
    }
    return names;
}
