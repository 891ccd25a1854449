#include "diskservice/options.h"

#include "diskservice/source/device_text.h"

#include <filesystem>
#include <string_view>

const char* const kHelpText =
    R"(Usage: diskservice [--image FILE[,model=TEXT][,serial=TEXT][,sector-size=512|4096][,optical]]...
Lists the computer's drives and their partitions on the system message bus, as org.freedesktop.UDisks,
and mounts their file systems below /media when a client asks it to. With --image it lists
image files instead, and no other device is looked at.

  --image FILE[,...]  serve the image file as a drive; may be given several times
      model=TEXT        the drive's model
      serial=TEXT       the drive's serial number
      sector-size=SIZE  bytes in a logical sector, 512 (default) or 4096
      optical           the drive is an optical disc
  --root DIR          look at DIR/sys, DIR/proc and DIR/dev in place of this computer's
  --help              show this text
  --version           show the version

A comma ends FILE and TEXT; a backslash takes the next character as it is ("\,", "\\").
DBUS_SYSTEM_BUS_ADDRESS chooses another bus than the system's.
)";

namespace {

// Splits at commas; a backslash takes the next character as it is.
std::vector<std::string> split_fields(const std::string& text)
{
    std::vector<std::string> fields(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ',') {
            fields.emplace_back();
            continue;
        }
        if (text[i] == '\\' && ++i == text.size()) {
            throw UsageError("--image: " + text + ": nothing follows the last backslash");
        }
        fields.back() += text[i];
    }
    return fields;
}

void apply_field(ImageOption& image, const std::string& field)
{
    const std::size_t equals = field.find('=');
    const std::string name = field.substr(0, equals);
    const bool hasValue = equals != std::string::npos;
    const std::string value = hasValue ? field.substr(equals + 1) : std::string();
    if (name == "model" && hasValue) {
        image.model = value;
    } else if (name == "serial" && hasValue) {
        image.serial = value;
    } else if (name == "sector-size" && (value == "512" || value == "4096")) {
        image.sectorSizeBytes = value == "512" ? 512 : 4096;
    } else if (name == "sector-size") {
        throw UsageError("--image: sector-size: neither 512 nor 4096: " + value);
    } else if (field == "optical") {
        image.isOptical = true;
    } else {
        throw UsageError("--image: unknown setting: " + field);
    }
}

ImageOption parse_image(const std::string& text)
{
    const std::vector<std::string> fields = split_fields(text);
    const std::filesystem::path path = fields.front();
    if (path.filename().empty()) {
        throw UsageError("--image: no file is named: " + text);
    }
    ImageOption image;
    image.path = std::filesystem::absolute(path).string();
    if (!is_printable(image.path)) {
        throw UsageError("--image: a name that cannot be shown: " +
                         printable_text(image.path).toStdString());
    }
    for (std::size_t i = 1; i < fields.size(); ++i) {
        apply_field(image, fields[i]);
    }
    return image;
}

std::string file_name(const ImageOption& image)
{
    return std::filesystem::path(image.path).filename().string();
}

// Whether `name` is that of the image itself or can be that of one of its partitions. The
// folders do not count, because the names on the bus are file names.
bool is_device_of(std::string_view name, const std::string& image)
{
    const std::string stem = partition_stem(image);
    return name == image ||
           (name.starts_with(stem) &&
            name.find_first_not_of("0123456789", stem.size()) == std::string_view::npos);
}

void refuse_clashes(const std::vector<ImageOption>& images)
{
    for (std::size_t i = 0; i < images.size(); ++i) {
        for (std::size_t k = 0; k < images.size(); ++k) {
            if (i != k && is_device_of(file_name(images[i]), file_name(images[k]))) {
                throw UsageError("--image: " + images[i].path + ": cannot be told from " +
                                 images[k].path + " or one of its partitions");
            }
        }
    }
}

} // namespace

Options parse_options(const std::vector<std::string>& arguments)
{
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::size_t equals = arguments[i].find('=');
        const std::string name = arguments[i].substr(0, equals);
        if (arguments[i] == "--help") {
            return {Options::Action::ShowHelp, {}, {}};
        }
        if (arguments[i] == "--version") {
            return {Options::Action::ShowVersion, {}, {}};
        }
        if (name != "--image" && name != "--root") {
            throw UsageError("unknown option: " + arguments[i]);
        }
        if (equals == std::string::npos && i + 1 == arguments.size()) {
            throw UsageError(name + ": nothing follows it");
        }
        const std::string value =
            equals == std::string::npos ? arguments[++i] : arguments[i].substr(equals + 1);
        if (name == "--image") {
            options.images.push_back(parse_image(value));
        } else if (std::filesystem::is_directory(value)) {
            options.root = std::filesystem::canonical(value).string();
        } else {
            throw UsageError("--root: no directory: " + value);
        }
    }
    if (!options.root.empty() && !options.images.empty()) {
        throw UsageError("--root: has no meaning with --image");
    }
    refuse_clashes(options.images);
    return options;
}
