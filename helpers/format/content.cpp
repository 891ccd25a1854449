#include "helpers/format/content.h"

#include "helpers/common/failure.h"
#include "helpers/format/file_io.h"
#include "helpers/format/layout.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace {

using namespace std::string_view_literals;

// The boot code shares the first sector with the partition table; GRUB's image keeps to
// this size (grub-core/boot/i386/pc/boot.S, GRUB_BOOT_MACHINE_WINDOWS_NT_MAGIC).
constexpr std::size_t kBootSectorCodeBytes = 440;
constexpr std::uint64_t kBootCoreOffsetBytes = 512;

// GRUB holds the picture several times over in memory.
constexpr std::int64_t kMaximumFileBytes = std::int64_t{16} << 20;
constexpr std::uint32_t kMaximumPixels = 8192; // along one side

constexpr auto kPngStart = "\x89PNG\r\n\x1a\n\0\0\0\rIHDR"sv;
constexpr auto kPngEnd = "\0\0\0\0IEND\xae\x42\x60\x82"sv;
constexpr std::size_t kPngWidthOffset = 16;
constexpr std::size_t kPngHeightOffset = 20;
constexpr std::size_t kPngHeaderBytes = 33;

std::string load_file(const std::string& path)
{
    // Without O_NONBLOCK the open of a FIFO would wait for a writer.
    const Descriptor file = open_file(path, O_RDONLY | O_NONBLOCK);
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw Failure(path + ": read: not a regular file");
    }
    if (status.st_size > kMaximumFileBytes) {
        throw Failure(path + ": read: the file is too large");
    }
    return read_file(file.get(), path);
}

std::uint32_t big_endian(std::string_view bytes, std::size_t offset)
{
    std::uint32_t value = 0;
    for (const char byte : bytes.substr(offset, sizeof value)) {
        value = value << 8U | static_cast<unsigned char>(byte);
    }
    return value;
}

bool is_plausible_side(std::uint32_t pixels)
{
    return pixels >= 1 && pixels <= kMaximumPixels;
}

// The start and the end: a picture whose writing was cut short does not count.
bool is_whole_png(std::string_view bytes)
{
    return bytes.size() >= kPngHeaderBytes + kPngEnd.size() && bytes.starts_with(kPngStart) &&
           bytes.ends_with(kPngEnd) && is_plausible_side(big_endian(bytes, kPngWidthOffset)) &&
           is_plausible_side(big_endian(bytes, kPngHeightOffset));
}

std::string load_picture(const std::string& path)
{
    std::string bytes = load_file(path);
    if (!is_whole_png(bytes)) {
        throw Failure(path + ": read: not a PNG picture");
    }
    return bytes;
}

std::string boot_directory()
{
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        throw Failure("boot images: find: " + error.message());
    }
    return executable.parent_path() / "boot";
}

} // namespace

std::vector<std::string> format_directories()
{
    return {"EFI", "EFI/BOOT"};
}

FormatContent load_content(const std::string& picturePath)
{
    FormatContent content;
    // The names under which the boot configuration and UEFI firmware (UEFI Specification
    // 2.10, 3.5.1.1 "Removable Media Boot Behavior") look for them.
    content.files.push_back({"picture.png", load_picture(picturePath)});
    const std::string boot = boot_directory();
    content.files.push_back({"EFI/BOOT/BOOTX64.EFI", load_file(boot + "/bootx64.efi")});
    content.files.push_back({"EFI/BOOT/BOOTIA32.EFI", load_file(boot + "/bootia32.efi")});

    content.bootSector = load_file(boot + "/boot.img");
    content.bootCore = load_file(boot + "/core.img");
    if (content.bootSector.size() < kBootSectorCodeBytes || content.bootCore.empty() ||
        content.bootCore.size() > kFirstTrackBytes - kBootCoreOffsetBytes) {
        throw Failure(boot + ": read: the boot images have wrong sizes");
    }
    content.bootSector.resize(kBootSectorCodeBytes);
    return content;
}
