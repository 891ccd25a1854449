#include "erase/helper_program.h"

#include "app/base/program_config.h"

QString helper_program(const char* name)
{
    return QString::fromStdString(theProgramConfig().lib()) + QLatin1Char('/') +
           QLatin1String(name);
}
