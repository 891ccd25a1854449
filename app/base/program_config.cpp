#include "app/base/program_config.h"

ProgramConfig::ProgramConfig()
    : name_("VantrellePlus"), nameHtml_("Vantrelle<font color=#0a6ac6>Plus</font>")
{
}

const std::string& ProgramConfig::name() const
{
    return name_;
}

const std::string& ProgramConfig::nameHtml() const
{
    return nameHtml_;
}

const std::string& ProgramConfig::lib() const
{
    return lib_;
}

void ProgramConfig::setLib(const std::string& lib)
{
    lib_ = lib;
}

ProgramConfig& theProgramConfig()
{
    static ProgramConfig config;
    return config;
}
