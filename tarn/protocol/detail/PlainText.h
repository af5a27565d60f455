#pragma once

#include "tarn/foundation/Export.h"
#include "tarn/protocol/ReplyLimits.h"

#include <string_view>

namespace connector::tarn::detail {

/// Takes what a plain text consists of, in its order: elements without attributes, and text between them.
///
/// Each tells whether to go on. What it throws ends the reading as well, and goes no further.
class PlainEvents {
public:
    virtual bool onStart(std::string_view name) = 0;
    virtual bool onEnd() = 0;

    /// A piece of text; one text may come in several.
    virtual bool onText(std::string_view piece) = 0;

protected:
    ~PlainEvents() = default;
};

/// Reads a text that is plain: elements without attributes, with text between them, below a declaration at most.
/// Namespaces are left to the receiver: a name may have a colon in it.
///
/// Nearly every reply is plain, and most are short: a parser takes longer to be made and put away than to read one of
/// those, so each thread keeps one. Of such a text nothing can grow while it is read: limits are kept on the way.
/// @return whether all of it was read. When not, it is something else, is not well-formed, passes a limit or was not
///         what the receiver wants, and the general reader tells which
TARN_API bool readPlain(std::string_view text, const ReplyLimits& limits, PlainEvents& events);

} // namespace connector::tarn::detail
