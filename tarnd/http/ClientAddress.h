#pragma once

#include <cstdint>
#include <string>
#include <sys/socket.h>

namespace tarnd {

/// Who counts as one client where limits are per address: an IPv4 address, or the first 64 bits of an IPv6
/// address, since whoever has one of those has them all.
using ClientAddress = std::uint64_t;

ClientAddress clientAddressOf(const sockaddr_storage& address);

/// The other end of a connection.
struct Client {
    ClientAddress address = 0;
    sockaddr_storage endpoint{};
    int socket = -1;

    /// "192.0.2.7", without the port.
    std::string text() const;

    /// Who counts as `address`: "192.0.2.7", or "2001:db8:0:1::/64".
    std::string addressText() const;

    /// It runs on the machine that the service runs on.
    bool isLocal() const;
};

} // namespace tarnd
