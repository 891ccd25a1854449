#pragma once

#include "diskservice/source/device_record.h"

#include <QString>
#include <QVariantMap>

// Device records as the bus shows them, in the names and types of version 1 of the UDisks
// interface "org.freedesktop.UDisks.Device".

/// Below this object path lie the devices; without a slash at its end.
extern const QString kDevicesPath;

/// The object path of the device with this device file: its name below /dev, of any other
/// file the file name, each byte other than an ASCII letter or digit written as _xx (two
/// hexadecimal digits). Images whose names would clash are refused at start.
QString object_path(const std::string& deviceFile);

/// All properties of the device.
QVariantMap device_properties(const DeviceRecord& device);
