#include "helpers/common/which_drive.h"

#include "helpers/common/failure.h"
#include "helpers/protocol/expected_drive.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

// Of the vital product data page 80h, before the serial number (SPC-5, 7.7.18).
constexpr std::size_t kPageHeaderBytes = 4;

// The file's text with single blanks for anything else, so that it stays part of one line.
std::string printable(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf(); // An iterator would throw when the drive has no such page (ENXIO).
    std::string text = content.str();
    if (file.filename() == "vpd_pg80") {
        text.erase(0, kPageHeaderBytes);
    }
    std::ranges::replace_if(
        text, [](char c) { return c < '!' || c > '~'; }, ' ');
    const auto isPair = [](char one, char other) { return one == ' ' && other == ' '; };
    text.erase(std::unique(text.begin(), text.end(), isPair), text.end());
    const std::size_t start = text.find_first_not_of(' ');
    return start == std::string::npos ? ""
                                      : text.substr(start, text.find_last_not_of(' ') + 1 - start);
}

std::string first_of(const fs::path& directory, std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        if (std::string text = printable(directory / name); !text.empty()) {
            return text;
        }
    }
    return {};
}

std::optional<std::uint64_t> number_from_environment(const char* name)
{
    const char* const text = std::getenv(name); // NOLINT(concurrency-mt-unsafe): one thread
    if (text == nullptr) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    const char* const end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, number);
    if (error != std::errc() || rest != end) {
        throw Failure(std::string(name) + ": '" + text + "' is not a number", ExitCode::Usage);
    }
    return number;
}

} // namespace

std::string model_and_serial(const fs::path& deviceDirectory)
{
    std::error_code error;
    const bool isPartition = fs::exists(deviceDirectory / "partition", error);
    // The kernel's own "..", so the links are followed first.
    const fs::path drive =
        isPartition ? fs::canonical(deviceDirectory, error).parent_path() : deviceDirectory;
    const std::string model = first_of(drive, {"device/model", "device/name"});
    const std::string serial =
        first_of(drive, {"device/serial", "serial", "device/vpd_pg80", "device/wwid", "wwid"});
    return model + (model.empty() || serial.empty() ? "" : ", ") + serial;
}

std::string model_and_serial(dev_t number)
{
    return model_and_serial(fs::path("/sys/dev/block") /
                            (std::to_string(major(number)) + ':' + std::to_string(minor(number))));
}

ExpectedDrive ExpectedDrive::fromEnvironment()
{
    return {.diskSequence = number_from_environment(kExpectedDiskSequence),
            .sizeBytes = number_from_environment(kExpectedSizeBytes)};
}
