#pragma once

#include "tarnd/http/Reply.h"
#include "tarnd/http/Request.h"
#include "tarnd/store/Item.h"

#include <string>

namespace tarnd {

/// A content as it is: 200 with all of it, 206 with the part that the request asks for (Range, If-Range), or
/// 416 with an error document when nothing of that part is there. Several ranges, and a range that cannot be
/// read, give the whole content.
///
/// Headers: Accept-Ranges; ETag; Last-Modified; Repr-Digest, the SHA-256 of the whole; Content-Digest, the
/// same, on the whole only; Content-Range on 206 and 416, where ETag and Repr-Digest are told, too.
/// @throws ServiceError internal when the content has another size, before a head promises what cannot follow
Reply contentReply(const Request& request, OpenContent content);

/// What Content-Digest and Repr-Digest carry for a SHA-256 of 64 hex digits.
std::string digestField(const std::string& sha256);

} // namespace tarnd
