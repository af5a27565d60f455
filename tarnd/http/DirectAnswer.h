#pragma once

#include "tarnd/http/Reply.h"

#include <cstdint>

/// Answers past the server library, where it cannot answer. Called on the thread of the connection.
namespace tarnd {

/// A connection of the server library.
struct DirectConnection {
    int fd;
    void* tls = nullptr; ///< its session of GnuTLS; nullptr: it is not encrypted
};

/// Sends a reply of a few hundred bytes, which fit into any socket's buffer; when they do not, the client gets a
/// closed connection.
void answerDirectly(const DirectConnection& connection, const Reply& reply);

/// The same for a client that is still sending, and ends the connection. The library cannot within a body, and closing
/// a connection with bytes that nobody has read resets it, which takes the reply away from a client that has not read
/// it yet. So what is on its way is dropped until the client hangs up, for a second.
void answerUnread(const DirectConnection& connection, const Reply& reply);

/// Sends the reply to a GET: its whole head, and no more than `most` bytes of its body. A client that takes nothing for
/// a second gets no more.
void answerInPart(const DirectConnection& connection, const Reply& reply, std::uint64_t most);

} // namespace tarnd
