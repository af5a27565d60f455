#pragma once

#include "tarnhost/detail/Descriptor.h"
#include "tarnhost/detail/EasyHandle.h"

#include <curl/curl.h>

#include <sys/epoll.h>

#include <chrono>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace connector::host::detail {

/// Waits for the sockets of a multi handle, which names them as its transfers come to want something of them.
class SocketWatch {
public:
    /// What a socket is ready for: CURL_CSELECT_ bits.
    struct Ready {
        curl_socket_t socket;
        int actions;
    };

    /// @param bell  a descriptor that ends a wait whenever it is written to. @throws std::system_error
    explicit SocketWatch(int bell);

    /// Waits for any socket or the bell. One thread at a time, which need not be the one of the other calls.
    void wait(std::chrono::milliseconds longest);

    // One thread at a time, also while another waits.

    /// What the last wait has found. Not while another thread waits.
    const std::vector<Ready>& ready();

    /// Does what libcurl asks for with a CURL_POLL_ value.
    void follow(curl_socket_t socket, int wish);

    /// Sees the connections of this handle come and go, by which a descriptor is told from another of its number.
    /// @throws std::runtime_error
    void attend(EasyHandle& handle);

private:
    struct Interest {
        /// A connection, which stays in the set while it waits for its next exchange: taking it out and back in would be
        /// two system calls for each.
        bool lasting = false;
        std::uint32_t wanted = 0;     ///< EPOLL bits; 0: of nobody at the moment
        std::uint32_t registered = 0; ///< those that the kernel knows
    };

    static int onOpened(void* self, curl_socket_t socket, curlsocktype purpose);
    static int onClosing(void* self, curl_socket_t socket);

    void drop(curl_socket_t socket);

    Descriptor epoll;
    const int bell;
    std::unordered_map<curl_socket_t, Interest> interests;
    std::vector<epoll_event> events; ///< room for them
    int found = 0;                   ///< how many the last wait has filled
    std::vector<Ready> current;
};

} // namespace connector::host::detail
