#include "helpers/common/failure.h"
#include "helpers/common/startup.h"
#include "helpers/format/arguments.h"
#include "helpers/format/run.h"

#include <algorithm>
#include <exception>
#include <iostream>

int main(int argc, char** argv)
{
    try {
        prepare_process();
        run_format(parse_format_arguments({argv + std::min(argc, 1), argv + argc}));
        return static_cast<int>(ExitCode::Success);
    } catch (const Failure& failure) {
        std::cerr << "format: " << failure.what() << '\n';
        return static_cast<int>(failure.exitCode());
    } catch (const std::exception& exception) {
        std::cerr << "format: " << exception.what() << '\n';
        return static_cast<int>(ExitCode::Failure);
    }
}
