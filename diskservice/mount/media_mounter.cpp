#include "diskservice/mount/media_mounter.h"

#include "diskservice/mount/loop_device.h"
#include "diskservice/mount/mount_table.h"
#include "diskservice/source/content_probe.h"
#include "diskservice/source/device_text.h"
#include "diskservice/source/image_source.h"
#include "posix/descriptor.h"

#include <fcntl.h>
#include <libmount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <system_error>

namespace {

const QString kFailed = QStringLiteral("Failed");
const QString kPermissionDenied = QStringLiteral("PermissionDenied");
const QString kNoDriver = QStringLiteral("FilesystemDriverMissing");

// No other type reaches the kernel, whatever a device claims to hold.
const QStringList kKnownTypes{"vfat", "exfat", "ntfs",    "ext2", "ext3", "ext4",   "btrfs",
                              "xfs",  "f2fs",  "iso9660", "udf",  "hfs",  "hfsplus"};

// None of them gives a file on the device a power that it does not have without.
const QStringList kSafeOptions{"ro",   "rw",      "noexec",  "nosuid",     "nodev",
                               "sync", "dirsync", "noatime", "nodiratime", "relatime"};
const QStringList kForcedOptions{"nosuid", "nodev"};

using Context = std::unique_ptr<libmnt_context, decltype(&mnt_free_context)>;

// Mounts on or unmounts from the directory, with the kernel alone.
Context make_context(const std::string& directory)
{
    Context context(mnt_new_context(), mnt_free_context);
    if (!context || mnt_context_set_target(context.get(), directory.c_str()) != 0) {
        throw MountFailure(kFailed, directory + ": out of memory");
    }
    mnt_context_disable_helpers(context.get(), 1);
    return context;
}

QString error_name(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return kPermissionDenied;
    case EBUSY:
        return QStringLiteral("Busy");
    default:
        return kFailed;
    }
}

// Throws unless the result of libmount's mount or umount is success.
void check_outcome(const Context& context, int result, const std::string& action)
{
    if (result == 0) {
        return;
    }
    const int error = mnt_context_syscall_called(context.get())
                          ? mnt_context_get_syscall_errno(context.get())
                          : -result;
    if (error == EBUSY) {
        throw MountFailure(error_name(error), action + ": in use; close what is open there");
    }
    std::array<char, 512> reason{};
    mnt_context_get_excode(context.get(), result, reason.data(), reason.size());
    throw MountFailure(error == ENODEV ? kNoDriver : error_name(error),
                       action + ": " + reason.data());
}

void check_options(const QStringList& options, const QStringList& known)
{
    for (const QString& option : options) {
        if (!known.contains(option)) {
            throw MountFailure("InvalidOption", "option not allowed: " + option.toStdString());
        }
    }
}

// A block device is only read here: its file system is for the kernel to write.
Descriptor open_device(const std::string& path, const DeviceRecord& device, bool isReadOnly)
{
    const int mode = device.blockDevice || isReadOnly ? O_RDONLY : O_RDWR;
    Descriptor descriptor(::open(path.c_str(), mode | O_NONBLOCK | O_CLOEXEC));
    if (descriptor.get() < 0) {
        throw std::system_error(errno, std::generic_category(), "open " + path);
    }
    struct stat status = {};
    const bool isKnown = ::fstat(descriptor.get(), &status) == 0;
    if (device.blockDevice) {
        if (!isKnown || !S_ISBLK(status.st_mode) || status.st_rdev != *device.blockDevice) {
            throw MountFailure(kFailed, path + ": not the device that was listed; look again");
        }
    } else if (!isKnown || !S_ISREG(status.st_mode)) {
        throw MountFailure(kFailed, path + ": not a regular file");
    }
    return descriptor;
}

// The kernel's name of the type to mount as.
std::string chosen_type(const QString& asked, const Content& content)
{
    if (content.usage != "filesystem") {
        throw MountFailure(kFailed, "there is no file system on it that can be mounted");
    }
    const QString type = asked.isEmpty() ? QString::fromStdString(content.type) : asked;
    if (!kKnownTypes.contains(type)) {
        throw MountFailure(kNoDriver, "unknown file system type: " + type.toStdString());
    }
    return type == "ntfs" ? "ntfs3" : type.toStdString();
}

// Clients hold paths in Latin-1, so the directory's name has no other characters.
QString directory_name(const Content& content)
{
    constexpr int kMaxCharacters = 64;
    constexpr char16_t kLastLatin1 = 0xFF;
    QString name = device_text(content.label.empty() ? content.uuid : content.label);
    name.truncate(kMaxCharacters);
    for (QChar& c : name) {
        if (c == '/' || c == '?' || c > kLastLatin1) {
            c = '_';
        }
    }
    if (name.startsWith('.')) {
        name[0] = '_';
    }
    return name.isEmpty() ? QStringLiteral("drive") : name;
}

// A new directory below /media; a number ends its name when there is one already.
std::string make_directory(const QString& name)
{
    constexpr int kMaxNumber = 999;
    ::mkdir("/media", S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH);
    // As the mount table shows it, symbolic links resolved.
    const std::filesystem::path media = std::filesystem::canonical("/media");
    for (int number = 0; number <= kMaxNumber; ++number) {
        const QString numbered = number == 0 ? name : name + QString::number(number);
        std::string directory = media / numbered.toStdString();
        if (::mkdir(directory.c_str(), S_IRWXU) == 0) {
            return directory;
        }
        if (errno != EEXIST) {
            throw std::system_error(errno, std::generic_category(), "make " + directory);
        }
    }
    throw MountFailure(kFailed, "too many directories have its name below /media");
}

void mount_block_device(const std::string& source, const std::string& directory,
                        const std::string& type, const QStringList& options)
{
    const Context context = make_context(directory);
    const std::string allOptions = (options + kForcedOptions).join(',').toStdString();
    const bool isReady = mnt_context_set_source(context.get(), source.c_str()) == 0 &&
                         mnt_context_set_fstype(context.get(), type.c_str()) == 0 &&
                         mnt_context_set_options(context.get(), allOptions.c_str()) == 0;
    check_outcome(context, isReady ? mnt_context_mount(context.get()) : -ENOMEM,
                  "mount as " + type);
}

std::string mount_device(const std::string& root, const DeviceRecord& device,
                         const QString& askedType, const QStringList& options)
{
    if (device.sizeBytes == 0) {
        throw MountFailure(kFailed, "there is no medium in it");
    }
    const bool isReadOnly = device.isReadOnly || options.contains("ro");
    const ImageRange place =
        device.blockDevice ? ImageRange{root + device.deviceFile, 0} : image_range(device);
    const Descriptor opened = open_device(place.path, device, isReadOnly);
    const ProbeRange range{opened.get(), place.offsetBytes, device.sizeBytes,
                           device.blockSizeBytes};
    const Content content = probe_content(range);
    const std::string type = chosen_type(askedType, content);
    if (::geteuid() != 0) {
        throw MountFailure(kPermissionDenied,
                           "mounting needs root: start the disk service as root");
    }
    std::optional<LoopDevice> loop;
    if (!device.blockDevice) {
        loop.emplace(attach_loop_device(range, isReadOnly));
    }
    std::string directory = make_directory(directory_name(content));
    try {
        mount_block_device(loop ? loop->path : place.path, directory, type,
                           isReadOnly ? options + QStringList("ro") : options);
    } catch (const MountFailure&) {
        ::rmdir(directory.c_str());
        throw;
    }
    return directory;
}

} // namespace

MediaMounter::~MediaMounter()
{
    for (const std::string& directory : directories_) {
        try {
            const Context context = make_context(directory);
            mnt_context_enable_lazy(context.get(), 1);
            check_outcome(context, mnt_context_umount(context.get()), directory + ": unmount");
        } catch (const std::exception& failure) {
            std::cerr << "diskservice: " << failure.what() << std::endl;
        }
        ::rmdir(directory.c_str());
    }
}

std::string MediaMounter::mount(const DeviceRecord& device, const QString& type,
                                const QStringList& options)
{
    try {
        check_options(options, kSafeOptions);
        if (const auto paths = MountTable(root_).pathsOf(device); !paths.empty()) {
            throw MountFailure(kFailed, "already mounted at " + paths.front());
        }
        return *directories_.insert(mount_device(root_, device, type, options)).first;
    } catch (const std::system_error& error) {
        throw MountFailure(error_name(error.code().value()), error.what());
    } catch (const ProbeFailure& failure) {
        throw MountFailure(kFailed, failure.what());
    }
}

void MediaMounter::unmount(const DeviceRecord& device, const QStringList& options)
{
    check_options(options, {});
    const std::vector<std::string> paths = MountTable(root_).pathsOf(device);
    if (paths.empty()) {
        throw MountFailure(kFailed, "not mounted");
    }
    const std::string& directory = paths.front();
    const Context context = make_context(directory);
    check_outcome(context, mnt_context_umount(context.get()), "unmount from " + directory);
    if (directories_.erase(directory) != 0) {
        ::rmdir(directory.c_str());
    }
}
