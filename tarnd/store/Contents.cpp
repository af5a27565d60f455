#include "tarnd/store/Contents.h"

#include "tarnd/store/Sentences.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace tarnd {

namespace {

constexpr std::size_t idBytes = 16;

ServiceError unreadable()
{
    return sentences::internal.because("a content cannot be read: " + std::generic_category().message(errno));
}

} // namespace

std::uint64_t ContentBytes::size() const
{
    if (stream) return stream->size();

    struct stat found {};

    if (::fstat(file.get(), &found) != 0) throw unreadable();
    return static_cast<std::uint64_t>(found.st_size);
}

std::size_t ContentBytes::read(void* data, std::size_t size)
{
    if (!ahead.empty()) {
        const auto count = ahead.copy(static_cast<char*>(data), size);
        ahead.erase(0, count);
        return count;
    }
    if (stream) return stream->read(data, size);
    for (;;) {
        const auto got = ::read(file.get(), data, size);
        if (got >= 0) return static_cast<std::size_t>(got);
        if (errno != EINTR) throw unreadable();
    }
}

std::string ContentBytes::beginning(std::size_t most)
{
    std::string bytes(std::min<std::uint64_t>(most, size()), '\0');
    if (!stream) {
        const auto got = ::pread(file.get(), bytes.data(), bytes.size(), 0);
        if (got < 0) throw unreadable();
        bytes.resize(static_cast<std::size_t>(got));
        return bytes;
    }
    for (auto at = ahead.size(); at < bytes.size(); at = ahead.size())
        ahead.append(bytes, 0, stream->read(bytes.data(), bytes.size() - at));
    return ahead.substr(0, bytes.size());
}

void ContentBytes::choose(std::uint64_t first, std::uint64_t count)
{
    if (!stream || count == size()) return;
    ahead.clear();
    stream->choose(first, count);
}

std::string Contents::newId()
{
    return randomHex(idBytes);
}

bool Contents::isId(const std::string& name)
{
    return name.size() == idBytes * 2 && name.find_first_not_of("0123456789abcdef") == std::string::npos;
}

} // namespace tarnd
