#pragma once

#include <Poco/XML/NamePool.h>

#include <cstddef>

namespace connector::tarn::detail {

/// A pool with room for the names of one more document, for documents that this thread reads and releases.
///
/// Making a pool takes longer than reading a reply of one record, so a thread's documents share one until it could
/// be full. A pool counts its owners without a lock: no document may go to another thread.
Poco::XML::NamePool* poolFor(std::size_t names);

} // namespace connector::tarn::detail
