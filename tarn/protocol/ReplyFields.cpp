#include "tarn/protocol/ReplyFields.h"

#include "tarn/protocol/WireText.h"

namespace connector::tarn {

void readValue(const std::string& text, std::string& value)
{
    value = text;
}

void readValue(const std::string& text, std::u16string& value)
{
    value = fromWire(text);
}

void readValue(const std::string& text, bool& value)
{
    value = flagFromWire(text);
}

void readValue(const std::string& text, std::uint64_t& value)
{
    value = std::stoull(text);
}

void readValue(const std::string& text, std::int64_t& value)
{
    value = std::stoll(text);
}

void readValue(const std::string& text, std::uint32_t& value)
{
    // Read as an unsigned long and cut: a number beyond 32 bits is no error here.
    value = static_cast<std::uint32_t>(std::stoul(text));
}

} // namespace connector::tarn
