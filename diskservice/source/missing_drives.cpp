#include "diskservice/source/missing_drives.h"

#include "diskservice/source/sysfs.h"

#include <algorithm>
#include <system_error>

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> folders_in(const fs::path& folder)
{
    std::vector<fs::path> folders;
    std::error_code error; // A kernel without that bus has no such folder.
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        folders.push_back(entry->path());
    }
    std::ranges::sort(folders);
    return folders;
}

bool is_there(const fs::path& path)
{
    std::error_code error;
    return fs::exists(path, error);
}

std::string without_prefix(const std::string& number)
{
    return number.starts_with("0x") ? number.substr(2) : number;
}

// Base class and sub-class, as in the PCI Code and ID Assignment Specification, 1.2 and 1.9.
bool is_storage(const std::string& pciClass)
{
    return pciClass.starts_with("0x01") || pciClass.starts_with("0x0805");
}

std::string pci_problem(const fs::path& device)
{
    const std::string pciClass = first_line(device / "class");
    const std::string chip = device.filename().string() + ": storage controller " +
                             without_prefix(first_line(device / "vendor")) + ':' +
                             without_prefix(first_line(device / "device"));
    if (number_in(device / "remapped_nvme") != 0) { // Of the kernel's driver ahci.
        return chip + " hides NVMe drives: set the SATA mode to AHCI in the firmware's setup";
    }
    if (!is_storage(pciClass) || is_there(device / "driver")) {
        return "";
    }
    return pciClass.starts_with("0x0104")
               ? chip + " is in a RAID mode without a driver, its drives are not seen: set the "
                        "SATA mode to AHCI (RAID, RST or VMD off) in the firmware's setup"
               : chip + " has no driver, its drives are not seen: try another mode (AHCI) in the "
                        "firmware's setup, or connect the drives to another computer";
}

// The class of an interface is that of USB's mass storage (USB-IF, Defined Class Codes).
std::string usb_problem(const fs::path& interface)
{
    const bool isStorage = first_line(interface / "bInterfaceClass") == "08";
    return isStorage && !is_there(interface / "driver")
               ? "usb " + interface.filename().string() +
                     ": USB storage has no driver, its drive is not seen: unplug it and plug it "
                     "into another socket"
               : "";
}

// NVMe: "live"; SCSI: "running". Others have none.
bool is_in_use(const std::string& state)
{
    return state.empty() || state == "running" || state == "live";
}

std::string empty_drive_problem(const fs::path& drive)
{
    if (number_in(drive / "metadata_bytes") != 0) {
        return "its sectors carry extra bytes (metadata) that the kernel cannot use: format it "
               "without them with its maker's tool or nvme format";
    }
    return "has a size of zero, or sectors of a size that the kernel cannot use (such as 520 "
           "bytes): check its cables, or format it to sectors of 512 bytes with sg_format";
}

std::string drive_problem(const fs::path& drive)
{
    const std::string name = drive.filename().string();
    const std::string state = first_line(drive / "device/state");
    const bool isDisk =
        name.starts_with("sd") || name.starts_with("nvme") || name.starts_with("vd");
    if (!isDisk || first_line(drive / "hidden") == "1") {
        return "";
    }
    if (!is_in_use(state)) {
        return "does not answer (" + state + "): check its cables and power, then start again";
    }
    if (number_in(drive / "size") == 0) { // A card reader without a card is no fault.
        return number_in(drive / "removable") != 0 ? "" : empty_drive_problem(drive);
    }
    return number_in(drive / "ro") != 0
               ? "is write-protected and cannot be erased: look for a switch on it"
               : "";
}

} // namespace

std::vector<std::string> missing_drives(const std::string& root)
{
    const fs::path sys = root + "/sys";
    std::vector<std::string> problems;
    for (const fs::path& device : folders_in(sys / "bus/pci/devices")) {
        problems.push_back(pci_problem(device));
    }
    for (const fs::path& interface : folders_in(sys / "bus/usb/devices")) {
        problems.push_back(usb_problem(interface));
    }
    for (const fs::path& drive : folders_in(sys / "block")) {
        const std::string problem = drive_problem(drive);
        problems.push_back(problem.empty() ? ""
                                           : "/dev/" + drive.filename().string() + ": " + problem);
    }
    std::erase(problems, "");
    return problems;
}
