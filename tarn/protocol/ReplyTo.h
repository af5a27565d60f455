#pragma once

#include "tarn/foundation/Future.h"

#include <memory>

namespace connector::tarn {

/// What an operation gives back at once: a future of the response that its request names.
template <class Request>
using ReplyTo = Future<std::unique_ptr<typename Request::Response>>;

} // namespace connector::tarn
