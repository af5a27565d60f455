#pragma once

#include "tarnd/http/Reply.h"

namespace tarnd {

/// Sends the reply to a GET past the server library: its whole head, and no more than `most` bytes of its body.
/// @param fd  a connection that is not encrypted; a client that takes nothing for a second gets no more
void answerInPart(int fd, const Reply& reply, std::uint64_t most);

} // namespace tarnd
