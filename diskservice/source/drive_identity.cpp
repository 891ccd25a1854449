#include "diskservice/source/drive_identity.h"

#include "diskservice/source/sysfs.h"

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>

namespace {

// The first that is not empty.
std::string first_of(std::initializer_list<std::string> texts)
{
    const auto* found = std::ranges::find_if(texts, [](const auto& text) { return !text.empty(); });
    return found == texts.end() ? std::string() : *found;
}

// The serial number that a SCSI drive keeps in its page 0x80 (SPC-4, 7.8.15): after a header
// of four bytes, and blanks before it.
std::string scsi_serial(const std::filesystem::path& device)
{
    constexpr std::size_t kHeaderBytes = 4;
    std::ifstream file(device / "vpd_pg80", std::ios::binary);
    std::ostringstream page;
    page << file.rdbuf();
    const std::string bytes = page.str();
    return bytes.size() < kHeaderBytes ? "" : decode_udev_text(bytes.substr(kHeaderBytes));
}

// A virtual machine's drive has no model, and would have no name on the screen.
std::string virtual_model(const std::string& name)
{
    return name.starts_with("vd") ? "Virtio drive" : "";
}

} // namespace

DriveIdentity identity_of(const KernelDevice& drive)
{
    const auto device = drive.folder / "device";
    DriveIdentity identity;
    const std::string vendor = first_line(device / "vendor");
    identity.vendor = first_of({decode_udev_text(drive.property("ID_VENDOR_ENC")),
                                vendor.starts_with("0x") ? "" : vendor}); // That is a chip's.
    identity.model =
        first_of({decode_udev_text(drive.property("ID_MODEL_ENC")), first_line(device / "model"),
                  first_line(device / "name"), virtual_model(drive.name())});
    identity.serial = first_of({drive.property("ID_SERIAL_SHORT"), first_line(device / "serial"),
                                first_line(drive.folder / "serial"), scsi_serial(device)});
    identity.revision = first_of({drive.property("ID_REVISION"), first_line(device / "rev"),
                                  first_line(device / "firmware_rev")});
    const std::string name = drive.name();
    identity.connectionInterface =
        first_of({drive.property("ID_BUS"), name.starts_with("nvme")     ? "nvme"
                                            : name.starts_with("mmcblk") ? "sdio"
                                            : name.starts_with("vd")     ? "virtio"
                                            : name.starts_with("fd")     ? "floppy"
                                                                         : ""});
    return identity;
}
