// ErrorOf: the message of the EXELGeoMapError a call raises, for tests that check exact texts.
#pragma once

#include <qvgeo/support/errors.h>

#include <functional>
#include <string>

namespace qv {

inline std::string ErrorOf(const std::function<void()>& f)
{
    try {
        f();
    } catch (const EXELGeoMapError& e) {
        return e.what();
    }
    return "(no error)";
}

}  // namespace qv
