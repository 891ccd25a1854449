#pragma once

#include <QString>

#include <string>

/// What a device says of itself, for people and for the bus. Text on the bus is UTF-8, and the
/// bus cuts off whoever sends anything else. Bytes that are no UTF-8 are taken as Latin-1, which
/// can hold any byte.
QString device_text(const std::string& bytes);
