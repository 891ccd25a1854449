#include "helpers/driver/arguments.h"

#include "erase/pattern/pattern.h"
#include "helpers/common/failure.h"
#include "helpers/protocol/driver_protocol.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <map>

namespace {

using namespace driver_protocol;

constexpr std::array kNames{kDevice, kMode, kPattern, kSectorsPerTime};

// Far more than a drive gains from; the step's size in bytes has a bound of its own.
constexpr std::uint32_t kMaxSectorsPerStep = 65536;

using Values = std::map<std::string, std::string>;

Failure usage_error(const std::string& message)
{
    return Failure(message, ExitCode::Usage);
}

Values split_arguments(const std::vector<std::string>& arguments)
{
    Values values;
    for (const std::string& argument : arguments) {
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        if (equals == std::string::npos || std::ranges::find(kNames, name) == kNames.end()) {
            throw usage_error("unknown argument '" + argument + "'");
        }
        if (!values.emplace(name, argument.substr(equals + 1)).second) {
            throw usage_error("repeated argument '" + argument + "'");
        }
    }
    for (const char* name : kNames) {
        if (!values.contains(name)) {
            throw usage_error("missing argument '" + std::string(name) + "='");
        }
    }
    return values;
}

TargetDevice::Access parse_mode(const std::string& text)
{
    if (text == kWrite) {
        return TargetDevice::Access::Write;
    }
    if (text == kRead) {
        return TargetDevice::Access::Read;
    }
    throw usage_error("mode: '" + text + "' is neither read nor write");
}

std::uint32_t parse_sectors_per_step(const std::string& text)
{
    std::uint32_t sectors = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, sectors);
    if (error != std::errc() || rest != end || sectors == 0 || sectors > kMaxSectorsPerStep) {
        throw usage_error("sectorsPerTime: '" + text + "' is not a number from 1 to " +
                          std::to_string(kMaxSectorsPerStep));
    }
    return sectors;
}

std::string parse_pattern(const std::string& text)
{
    std::string pattern = pattern_from_text(text.c_str());
    if (pattern.empty()) {
        throw usage_error("invalid pattern");
    }
    return pattern;
}

Verification verification_from_environment()
{
    const char* const given = std::getenv(kVerifyVariable); // NOLINT(concurrency-mt-unsafe)
    const std::string text = given == nullptr ? kTenth : given;
    if (text == kSpot) {
        return Verification::Spot;
    }
    if (text == kTenth) {
        return Verification::Tenth;
    }
    if (text == kFull) {
        return Verification::Full;
    }
    throw usage_error(std::string(kVerifyVariable) + ": '" + text +
                      "' is not one of spot, tenth and full");
}

} // namespace

std::optional<DriverArguments> parse_driver_arguments(const std::vector<std::string>& words)
{
    if (std::ranges::find(words, "--help") != words.end()) {
        return std::nullopt;
    }

    const Values values = split_arguments(words);
    DriverArguments arguments;
    arguments.devicePath = values.at(kDevice);
    if (arguments.devicePath.empty()) {
        throw usage_error("device: '' is not a path");
    }
    arguments.access = parse_mode(values.at(kMode));
    arguments.verification = verification_from_environment();
    arguments.sectorsPerStep = parse_sectors_per_step(values.at(kSectorsPerTime));
    if (arguments.access == TargetDevice::Access::Write) {
        arguments.pattern = parse_pattern(values.at(kPattern));
    }
    return arguments;
}

std::string driver_help()
{
    return "Usage: driver device=PATH mode=read|write pattern=TEXT sectorsPerTime=N\n"
           "Overwrites every sector of a drive, or only reads every sector.\n"
           "\n"
           "  device=PATH       a block device that is not in use, or a regular file\n"
           "  mode=read|write   read changes nothing\n"
           "  pattern=TEXT      the bytes that each sector is filled with; \\xHH is any byte\n"
           "  sectorsPerTime=N  sectors in one step, from 1 to " +
           std::to_string(kMaxSectorsPerStep) +
           "\n"
           "  --help            show this text\n"
           "\n"
           "The four arguments are all needed, in any order. Nothing asks for confirmation.\n"
           "\n"
           "What was written is read back: a tenth of it, or what the environment variable\n"
           "VANTRELLE_VERIFY says: spot (2400 sectors), tenth or full.\n";
}
