#pragma once

#include "tarn/protocol/ReplyLimits.h"
#include "tarn/protocol/detail/NameSet.h"

#include <Poco/AutoPtr.h>
#include <Poco/XML/NamePool.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace connector::tarn::detail {

/// The names in the documents that this thread reads and releases.
///
/// Making a pool takes longer than reading a reply of one record, so a thread's documents share one until it could
/// be full. A pool counts its owners without a lock: no document may go to another thread.
class ThreadNames {
public:
    static ThreadNames& ofThisThread();

    /// The pool for the next document, with room for so many names, which it is to count with `take` or `find`.
    Poco::XML::NamePool* poolFor(std::size_t names);

    /// Counts names of a document that may be new to the pool.
    void take(std::size_t names) { room -= names; }

    /// The name of an element without a namespace, for the pool to know; null when it needs to look for one, passes
    /// a limit or has no room. Valid until the next `poolFor`.
    const std::string* find(std::string_view name, const ReplyLimits& limits);

private:
    Poco::AutoPtr<Poco::XML::NamePool> pool;
    std::size_t room = 0; ///< left, if no document had a name that another has
    NameSet plain;        ///< what `find` has found
};

} // namespace connector::tarn::detail
