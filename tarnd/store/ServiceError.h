#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace tarnd {

/// A request that was refused or failed: what kind of failure, and one plain sentence for the caller.
///
/// what() is safe to send over the wire. detail() is for the log alone (an engine's own text, an errno); it
/// is empty when the sentence says it all, and never holds a token or a session id.
class ServiceError : public std::runtime_error {
public:
    enum class Kind {
        badRequest,          ///< 400: malformed, or names an unknown user, handle, grant or version
        loginRequired,       ///< 401: no live session, or a token that no account has
        notAllowed,          ///< 403: the caller sees the item but may not do this to it
        notFound,            ///< 404: a path that does not exist or that the caller may not see; nothing else
        conflict,            ///< 409: the state of the tree is against it
        preconditionFailed,  ///< 412: the file is not as the request wants it to be
        lengthRequired,      ///< 411: an upload that does not say how long it is
        tooLarge,            ///< 413: an upload or a header beyond the limits
        rangeOutside,        ///< 416: a part of a content that is not there
        tooMany,             ///< 429: more than an address or a user may have at a time; nothing has changed
        insufficientStorage, ///< 507: the disk is full, or a quota
        internal,            ///< 500: a fault of the service or of its storage
        unavailable, ///< 503: not at the moment; nothing has changed, and the same request may succeed later
    };

    /// @param reason  of a text that lasts, see Sentence
    ServiceError(Kind kind, std::string_view reason, const std::string& sentence, std::string detail = {})
        : std::runtime_error(sentence), ownKind(kind), ownReason(reason), logDetail(std::move(detail))
    {
    }

    Kind kind() const noexcept { return ownKind; }

    std::string_view reason() const noexcept { return ownReason; }

    const std::string& detail() const noexcept { return logDetail; }

private:
    Kind ownKind;
    std::string_view ownReason;
    std::string logDetail;
};

} // namespace tarnd
