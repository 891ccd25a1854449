#pragma once

#include <string>

/// Joins a directory and a file name of the program's own making.
inline constexpr char DIR_SEPARATOR = '/';

/// The settings that the rest of the program reads. There is one instance,
/// theProgramConfig(); the names never change.
class ProgramConfig {
public:
    ProgramConfig();

    /// The product's display name, ASCII.
    [[nodiscard]] const std::string& name() const;

    /// The display name as toolkit rich text.
    [[nodiscard]] const std::string& nameHtml() const;

    /// The library directory, where the helper programs lie: an absolute path without a
    /// trailing separator, UTF-8; empty until start-up settles it.
    [[nodiscard]] const std::string& lib() const;
    void setLib(const std::string& lib);

private:
    std::string name_;
    std::string nameHtml_;
    std::string lib_;
};

ProgramConfig& theProgramConfig();
