#include "helpers/format/arguments.h"

#include "helpers/common/failure.h"
#include "helpers/protocol/format_protocol.h"

#include <algorithm>
#include <string_view>

FormatArguments parse_format_arguments(const std::vector<std::string>& words)
{
    if (words == std::vector<std::string>{"--help"}) {
        return {.showHelp = true};
    }
    const auto option = std::find_if(words.begin(), words.end(),
                                     [](const std::string& text) { return text.starts_with('-'); });
    if (option != words.end()) {
        throw Failure("unknown option: " + *option, ExitCode::Usage);
    }
    if (words.size() != 2) {
        throw Failure("usage: format DEVICE[-emulate] IMAGE", ExitCode::Usage);
    }

    FormatArguments arguments{.device = words[0], .picture = words[1]};
    const std::string_view suffix = format_protocol::kEmulateSuffix;
    if (arguments.device.ends_with(suffix)) {
        arguments.emulate = true;
        arguments.device.resize(arguments.device.size() - suffix.size());
    }
    if (arguments.device.empty()) {
        throw Failure("the device is missing", ExitCode::Usage);
    }
    if (arguments.picture.empty()) {
        throw Failure("the picture is missing", ExitCode::Usage);
    }
    return arguments;
}

std::string format_help()
{
    return "Usage: format DEVICE IMAGE\n"
           "       format DEVICE-emulate IMAGE\n"
           "\n"
           "Gives DEVICE (a block device or an image file) a partition table with one\n"
           "bootable FAT32 partition that holds the picture IMAGE (PNG). A machine that\n"
           "boots from it, by BIOS or by UEFI, shows the picture and waits for a key.\n"
           "EVERYTHING ON THE DEVICE IS LOST.\n"
           "\n"
           "  DEVICE-emulate  check everything and say what would be done; write nothing\n"
           "  --help          show this text\n"
           "\n"
           "Exit codes: 0 done and read back, 1 not done or not completely,\n"
           "2 wrong arguments.\n";
}
