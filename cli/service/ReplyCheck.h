#pragma once

#include "tarnhost/HttpOptions.h"

#include <string>

namespace tarncli {

/// What is wrong with a reply that no Tarn service sends; empty when nothing is.
///
/// The library asks for a status and, of documents, that they are well-formed: a proxy or the login page of a
/// network that answers in place of the service would do. A Tarn service answers with application/xml, the root
/// element being Response for status 200 and Error for every other, and sends the bytes of files as
/// application/octet-stream.
std::string whyNotTarn(const connector::host::ReceivedReply& reply);

} // namespace tarncli
