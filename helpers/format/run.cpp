#include "helpers/format/run.h"

#include "helpers/common/failure.h"
#include "helpers/common/target_device.h"
#include "helpers/common/which_drive.h"
#include "helpers/format/file_io.h"
#include "helpers/format/medium.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <iostream>
#include <optional>

namespace {

std::vector<std::uint64_t> file_sizes(const FormatContent& content)
{
    std::vector<std::uint64_t> sizes;
    for (const FormatFile& file : content.files) {
        sizes.push_back(file.bytes.size());
    }
    return sizes;
}

void say(const std::string& text)
{
    std::cout << text << std::endl;
    if (!std::cout) {
        throw Failure("standard output: write: failed");
    }
}

std::string describe(const std::string& device, const FormatArguments& arguments,
                     const FormatLayout& layout)
{
    return device + ": " + (arguments.emulate ? "would write" : "writing") +
           " a partition table with one FAT32 partition of " +
           std::to_string(layout.partitionSectors) + " sectors of " +
           std::to_string(layout.sectorSizeBytes) + " bytes at sector " +
           std::to_string(layout.partitionStart) + ", " +
           (layout.bootsByBios() ? "boot code for BIOS and UEFI" : "boot code for UEFI only") +
           ", and the picture " + arguments.picture;
}

// The device, held exclusively; mkfs.fat, which holds it so itself, gets it for a while. Another
// program that takes the device in between makes one of the two fail.
class LendableDevice {
public:
    LendableDevice(const FormatArguments& arguments, TargetDevice::Access access)
        : expected_(ExpectedDrive::fromEnvironment()),
          device_(std::in_place, arguments.device, access, expected_), name_(device_->name())
    {
    }

    const TargetDevice* operator->() const { return &*device_; }
    [[nodiscard]] const std::string& name() const { return name_; }

    void lend() { device_.reset(); }

    void takeBack(const Descriptor& descriptor)
    {
        try {
            device_.emplace(descriptor.procName(), TargetDevice::Access::Write, expected_);
        } catch (const Failure&) {
            throw Failure(name_ + ": open again: the device is in use or has gone");
        }
    }

private:
    ExpectedDrive expected_;
    std::optional<TargetDevice> device_;
    std::string name_;
};

// The content is right whatever the kernel answers (a file has no partitions to know).
void reread_partition_table(const LendableDevice& device)
{
    if (device->isBlockDevice() && ::ioctl(device->descriptor(), BLKRRPART) != 0) {
        std::cerr << "format: "
                  << system_failure(device.name(), "re-read the partition table", errno).what()
                  << '\n';
    }
}

void format(LendableDevice& device, FormatMedium medium, const FormatContent& content,
            const FormatTools& tools)
{
    // Opened before the first change: it sees every write error until flush(), those of
    // the tools' writes included, and stays while the device is lent.
    const Descriptor descriptor =
        open_file("/proc/self/fd/" + std::to_string(device->descriptor()), O_RDWR);
    medium.descriptor = descriptor.get();

    wipe_old_structures(medium);
    device.lend();
    make_file_system(medium, tools);
    device.takeBack(descriptor);
    put_files(medium, tools, content);
    // Last: until everything is there, nothing boots from the device.
    write_first_track(medium, content);
    flush(medium);
    check_first_track(medium, content);
    check_file_system(medium, tools, content);
    reread_partition_table(device);
}

} // namespace

void run_format(const FormatArguments& arguments)
{
    if (arguments.showHelp) {
        return say(format_help());
    }

    const FormatContent content = load_content(arguments.picture);
    const FormatTools tools = find_tools();
    LendableDevice device(arguments, arguments.emulate ? TargetDevice::Access::Read
                                                       : TargetDevice::Access::Write);
    const FormatLayout layout =
        plan_layout(device.name(), device->sizeBytes(), device->sectorSizeBytes());
    check_room(device.name(), layout, file_sizes(content));
    say(one_line(describe(device.name(), arguments, layout)));
    if (arguments.emulate) {
        return;
    }
    format(device, {.name = device.name(), .sizeBytes = device->sizeBytes(), .layout = layout},
           content, tools);
    say(one_line(device.name() + ": formatted"));
}
