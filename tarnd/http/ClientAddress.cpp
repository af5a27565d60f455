#include "tarnd/http/ClientAddress.h"

#include <cstring>
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

} // namespace tarnd
