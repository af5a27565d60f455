#pragma once

#include "tarnd/http/ConnectionTable.h"
#include "tarnd/http/Exchange.h"

#include <microhttpd.h>

namespace tarnd {

/// Hands a whole reply, or one with a file, to the server library, which sends it.
/// @return what the library's handler is to return
MHD_Result queueReply(MHD_Connection* connection, Reply reply, AfterReply after);

/// Who makes a reply while it goes out; all of it outlives the request.
struct Producer {
    ConnectionTable& table;
    const int descriptor; ///< of the connection
    Exchange& exchange;
};

/// The same for one that is made while it goes out. @pre reply.source
MHD_Result queueProduced(MHD_Connection* connection, const Reply& reply, Producer producer, AfterReply after);

} // namespace tarnd
