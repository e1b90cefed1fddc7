// The one place where an errno becomes words.
#include "platform/Errors.h"

#include <cstring>

namespace vorlo {

std::string describeFileFailure(std::string_view subject, std::string_view displayPath, std::string_view action,
                                int errorNumber) {
    std::string text = "The ";
    text += subject;
    if (!displayPath.empty()) {
        text += " \u201C";
        text += displayPath;
        text += "\u201D";
    }
    text += " could not be ";
    text += action;
    text += ": ";
    text += std::strerror(errorNumber);
    text += ".";
    return text;
}

void throwFileFailure(std::string_view subject, std::string_view displayPath, std::string_view action,
                      int errorNumber) {
    throw PlatformError(describeFileFailure(subject, displayPath, action, errorNumber), errorNumber);
}

} // namespace vorlo
