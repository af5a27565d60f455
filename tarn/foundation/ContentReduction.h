#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <memory>

namespace connector::reactive_streams {

/// Appends `item` to `accumulator`. An item that fills its storage exactly is taken over instead of copied
/// when there is nothing to append it to, so a body that arrives in one piece is never copied.
/// @throws std::runtime_error "Out of memory!"
TARN_API common::DataBuffer appendContent(common::DataBuffer&& item, common::DataBuffer&& accumulator);

/// All bytes of `publisher` in order, in one buffer. Time and memory grow linearly with the number of bytes.
///
/// The future is resolved on the thread that ends the stream, possibly before this returns. It fails with the
/// publisher's error or with std::runtime_error "Out of memory!".
TARN_API Future<common::DataBuffer>
reduceContentToDataBuffer(std::shared_ptr<PublisherAPI<common::DataBuffer>>& publisher);

} // namespace connector::reactive_streams
