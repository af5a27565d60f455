#include "tarnd/store/TimeText.h"

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>

namespace tarnd {

std::string timeText(std::int64_t milliseconds)
{
    return Poco::DateTimeFormatter::format(Poco::Timestamp(milliseconds * 1000),
                                           Poco::DateTimeFormat::ISO8601_FORMAT);
}

} // namespace tarnd
