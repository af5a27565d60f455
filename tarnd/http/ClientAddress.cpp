#include "tarnd/http/ClientAddress.h"

#include <arpa/inet.h>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>

namespace tarnd {

ClientAddress clientAddressOf(const sockaddr_storage& address)
{
    if (address.ss_family == AF_INET) return reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr;
    const auto& bytes = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
    // An IPv4 client on a socket for both has its address in the last four bytes.
    const std::size_t size = IN6_IS_ADDR_V4MAPPED(&bytes) ? 4 : 8;
    ClientAddress client = 0;
    std::memcpy(&client, bytes.s6_addr + (size == 4 ? 12 : 0), size);
    return client;
}

std::string Client::text() const
{
    char text[NI_MAXHOST] = "";
    ::getnameinfo(reinterpret_cast<const sockaddr*>(&endpoint), sizeof endpoint, text, sizeof text, nullptr,
                  0, NI_NUMERICHOST);
    return text;
}

std::string Client::addressText() const
{
    if (endpoint.ss_family == AF_INET) return text();
    auto bytes = reinterpret_cast<const sockaddr_in6&>(endpoint).sin6_addr;
    char text[INET6_ADDRSTRLEN] = "";
    if (IN6_IS_ADDR_V4MAPPED(&bytes)) return ::inet_ntop(AF_INET, bytes.s6_addr + 12, text, sizeof text);
    std::memset(bytes.s6_addr + 8, 0, 8);
    return ::inet_ntop(AF_INET6, &bytes, text, sizeof text) + std::string("/64");
}

/// Over loopback, or from one of the machine's own addresses to itself: a service may listen on that one only.
bool Client::isLocal() const
{
    Client own;
    socklen_t size = sizeof own.endpoint;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&own.endpoint), &size) != 0) return false;
    const auto address = text();
    return address.starts_with("127.") || address.starts_with("::ffff:127.") || address == "::1" ||
           address == own.text();
}

} // namespace tarnd
