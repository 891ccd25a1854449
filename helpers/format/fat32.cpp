#include "helpers/format/medium.h"

#include "helpers/common/failure.h"
#include "helpers/format/child_process.h"
#include "helpers/format/file_io.h"

#include <cstring>
#include <string_view>

// The FAT32 file system, through mkfs.fat and the mtools: no kernel driver, no mount, no
// privilege beyond the open descriptor.
//
// The tools work on the device itself and not on a copy in memory, because mkfs.fat writes
// every sector of both allocation tables: half a GiB for a drive of 2 TiB. They are given
// the checked descriptor and open it through its /proc name, so that it does not matter
// what the device's name means by then.

namespace {

constexpr const char* kLabel = "ERASED";
constexpr std::uint64_t kBytesPerBlock = 1024; // in which mkfs.fat counts

// Layout of a FAT32 boot sector, in bytes (Microsoft, FAT32 File System Specification
// 1.03, "Boot Sector and BPB Structure").
constexpr std::size_t kBootSectorBytes = 512;
constexpr std::size_t kBytesPerSectorOffset = 11;
constexpr std::size_t kSectorsPerClusterOffset = 13;
constexpr std::size_t kReservedSectorsOffset = 14;
constexpr std::size_t kFatCountOffset = 16;
constexpr std::size_t kTotalSectorsOffset = 32;
constexpr std::size_t kFatSectorsOffset = 36;
constexpr std::size_t kLabelOffset = 71;
constexpr std::size_t kTypeOffset = 82;
constexpr std::size_t kSignatureOffset = 510;
constexpr std::string_view kType = "FAT32   ";
constexpr std::string_view kSignature = "\x55\xAA";

std::string run_tool(const FormatMedium& medium, const std::string& action,
                     const ChildCommand& command)
{
    ChildResult result = run_child(command);
    if (!result.succeeded) {
        throw Failure(medium.name + ": " + action + ": " + result.reason);
    }
    return std::move(result.output);
}

// The drive letter is told by a configuration in memory: only there can the mtools be
// told not to lock the device, on which this program holds a lock of its own.
std::string mtools_configuration(const FormatMedium& medium)
{
    return "drive x: file=\"/proc/self/fd/" + std::to_string(medium.descriptor) +
           "\" offset=" + std::to_string(medium.layout.partitionOffsetBytes()) +
           " nolock\nmtools_skip_check=1\n";
}

std::string run_mtool(const FormatMedium& medium, const std::string& action,
                      const std::string& program, const std::vector<std::string>& arguments,
                      std::string_view input = {})
{
    const Descriptor configuration = memory_file();
    write_all(configuration.get(), mtools_configuration(medium), 0, "mtools configuration");
    return run_tool(medium, action,
                    {.program = program,
                     .arguments = arguments,
                     .environment = {"LC_ALL=C", "MTOOLSRC=" + configuration.procName()},
                     .inherited = {medium.descriptor, configuration.get()},
                     .input = input});
}

std::uint64_t clusters_of(std::string_view sector)
{
    const std::uint64_t total = little_endian(sector, kTotalSectorsOffset, 4);
    const std::uint64_t tables = std::uint64_t{little_endian(sector, kFatSectorsOffset, 4)} *
                                 little_endian(sector, kFatCountOffset, 1);
    const std::uint64_t reserved = little_endian(sector, kReservedSectorsOffset, 2);
    const std::uint32_t perCluster = little_endian(sector, kSectorsPerClusterOffset, 1);
    return perCluster == 0 || total < tables + reserved ? 0
                                                        : (total - tables - reserved) / perCluster;
}

bool is_planned_boot_sector(std::string_view sector, const FormatLayout& layout)
{
    // mkfs.fat adds the half KiB at the end of a device with an odd number of sectors.
    const std::uint32_t total = little_endian(sector, kTotalSectorsOffset, 4);
    return sector.substr(kSignatureOffset) == kSignature &&
           sector.substr(kTypeOffset, kType.size()) == kType &&
           sector.substr(kLabelOffset, std::strlen(kLabel)) == kLabel &&
           little_endian(sector, kBytesPerSectorOffset, 2) == layout.sectorSizeBytes &&
           total >= layout.fileSystemSectors && total <= layout.partitionSectors &&
           clusters_of(sector) >= kMinimumClusters;
}

} // namespace

FormatTools find_tools()
{
    return {.mkfs = find_program("mkfs.fat"),
            .mmd = find_program("mmd"),
            .mcopy = find_program("mcopy")};
}

void make_file_system(const FormatMedium& medium, const FormatTools& tools)
{
    const FormatLayout& layout = medium.layout;
    const std::string start = std::to_string(layout.partitionStart);
    const std::uint64_t blocks = layout.fileSystemSectors * layout.sectorSizeBytes / kBytesPerBlock;
    // -I: the kernel may still know partitions of the old table. -a: keep to the layout,
    // instead of cutting the file system to whole tracks. -h: where the partition begins,
    // which some firmware reads here.
    run_tool(medium, "make the file system",
             {.program = tools.mkfs,
              .arguments = {"-I", "-a", "-F", "32", "-n", kLabel, "-h", start, "-S",
                            std::to_string(layout.sectorSizeBytes), "-s",
                            std::to_string(layout.sectorsPerCluster), "-R",
                            std::to_string(layout.reservedSectors), "--offset=" + start,
                            "/proc/self/fd/" + std::to_string(medium.descriptor),
                            std::to_string(blocks)},
              .environment = {"LC_ALL=C"},
              .inherited = {medium.descriptor},
              .input = {}});
}

void put_files(const FormatMedium& medium, const FormatTools& tools, const FormatContent& content)
{
    for (const std::string& directory : format_directories()) {
        run_mtool(medium, "make directory " + directory, tools.mmd, {"x:/" + directory});
    }
    for (const FormatFile& file : content.files) {
        run_mtool(medium, "write " + file.name, tools.mcopy, {"-", "x:/" + file.name}, file.bytes);
    }
}

void check_file_system(const FormatMedium& medium, const FormatTools& tools,
                       const FormatContent& content)
{
    const std::string sector = read_exactly(medium.descriptor, kBootSectorBytes,
                                            medium.layout.partitionOffsetBytes(), medium.name);
    if (!is_planned_boot_sector(sector, medium.layout)) {
        throw Failure(medium.name + ": check: the file system reads back differently");
    }
    for (const FormatFile& file : content.files) {
        if (run_mtool(medium, "read " + file.name, tools.mcopy, {"x:/" + file.name, "-"}) !=
            file.bytes) {
            throw Failure(medium.name + ": check: " + file.name + " reads back differently");
        }
    }
}
