#include <qvgeo/support/errors.h>

namespace qv {

std::string ComponentMessage(std::string_view componentName, std::string_view text)
{
    std::string msg;
    msg.reserve(componentName.size() + text.size() + 16);
    msg += "Component \"";
    msg += componentName;
    msg += "\": ";
    msg += text;
    return msg;
}

}  // namespace qv
