#pragma once

#include <string>
#include <string_view>
#include <vector>

/// One run of another program, without a shell.
struct ChildCommand {
    std::string program; ///< Absolute path.
    std::vector<std::string> arguments;
    std::vector<std::string> environment; ///< "NAME=value"; the child gets nothing else.
    std::vector<int> inherited;           ///< Descriptors that stay open, under their numbers.
    std::string_view input;               ///< What it reads from standard input.
};

/// How a child ended. It succeeded only when it ran to its end with exit code 0.
struct ChildResult {
    bool succeeded = false;
    std::string output; ///< All of its standard output.
    std::string reason; ///< Why it failed: its standard error on one line, and how it ended.
};

/// Runs a program to its end. It is killed when the calling thread ends before. Throws
/// Failure when it cannot be started at all.
[[nodiscard]] ChildResult run_child(const ChildCommand& command);

/// The absolute path of an executable file named `name` in the directories of PATH or in
/// /usr/sbin and /sbin (which the PATH of many users lacks). Throws Failure without one.
[[nodiscard]] std::string find_program(const std::string& name);
