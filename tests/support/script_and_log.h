#pragma once

#include "app/base/debug_log.h"

#include <QFile>
#include <QRegularExpression>

/// Writes an executable shell script and gives its path.
inline QString write_script(const QString& path, const QByteArray& body)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + body + "\n") < 0) {
        qFatal("cannot write %s", qPrintable(path));
    }
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

/// What was logged to memory since the log had `start` characters, without line numbers.
inline QString log_since(qsizetype start)
{
    return dbg_string().mid(start).replace(QRegularExpression(R"(\b(\w+)\(\d+\): )"), "\\1: ");
}
