#pragma once

#include <cstdint>
#include <sys/socket.h>

namespace tarnd {

/// Who counts as one client where limits are per address: an IPv4 address, or the first 64 bits of an IPv6
/// address, since whoever has one of those has them all.
using ClientAddress = std::uint64_t;

ClientAddress clientAddressOf(const sockaddr_storage& address);

} // namespace tarnd
