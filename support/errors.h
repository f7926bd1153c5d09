// Exception classes of the library: EXELError and one subclass per unit. Each carries a message text only.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace qv {

class EXELError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class EXELGeoBasicsError : public EXELError {
public:
    using EXELError::EXELError;
};

class EXELGeoDBError : public EXELError {
public:
    using EXELError::EXELError;
};

class EXELGeoMapError : public EXELError {
public:
    using EXELError::EXELError;
};

// The text a component raises: Component "<name>": <text>
std::string ComponentMessage(std::string_view componentName, std::string_view text);

}  // namespace qv
