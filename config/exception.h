#pragma once

#include <stdexcept>

namespace config {

/// A keyed lookup met data that is not as the caller expects: the key is missing or its
/// member has another type. The text names the key and, for a wrong type, both types.
/// A misuse of the interface is a plain std::runtime_error instead, see config/value.h.
class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace config
