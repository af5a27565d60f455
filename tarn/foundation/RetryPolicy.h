#pragma once

#include "tarn/foundation/Export.h"

#include <chrono>

namespace connector {

/// How often an exchange that was interrupted is tried again, and the pauses before. An exchange is interrupted when
/// its connection could not be made, for whatever reason but a certificate, or was lost before the reply was whole.
///
/// Tried again is only what is safe to repeat: a "get" that is not to be sent at most once, and any request of which
/// nothing was sent yet. A request whose body is sent as it arrives is not once any of that was taken to be sent, since
/// its publisher has given it away, and a reply that arrives as a stream not after its head. What a time limit has ended
/// is not either: the time that the application grants is over.
///
/// What was turned away with 429 has done nothing, so any request is tried again then, a change as well, unless some of
/// a body that is sent as it arrives is gone; not before the time in "Retry-After" has passed, and not at all when that
/// is longer than `longestPause`. What was answered with 502, 503 or 504, by a gateway whose service is away or by a
/// service that is busy, is tried again likewise where it only reads. What the last try brings is the reply.
struct TARN_API RetryPolicy {
    /// After the first try. None unless it is asked for: whoever waits hears of a failure at once, and a program that
    /// repeats what has failed by itself does not multiply what this does.
    unsigned most = 0;
    std::chrono::milliseconds firstPause{500};
    std::chrono::milliseconds longestPause{60'000}; ///< each is twice as long as the one before, up to this

    /// A time between half of `pause` and half as much again, by chance, so that the clients of a service that was
    /// away do not come back at the same moment.
    static std::chrono::milliseconds scattered(std::chrono::milliseconds pause);

    /// The pause after `pause`.
    std::chrono::milliseconds following(std::chrono::milliseconds pause) const;
};

} // namespace connector
