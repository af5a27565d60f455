#pragma once

#include "cli/terminal/Failure.h"

#include <exception>
#include <string>
#include <string_view>

namespace tarncli {

/// Reasons of the service that change what a verb does next.
namespace reasons {
inline constexpr std::string_view notFound = "notFound";
inline constexpr std::string_view fileExists = "fileExists";
inline constexpr std::string_view folderExists = "folderExists";
inline constexpr std::string_view parentMissing = "parentMissing";
inline constexpr std::string_view isFile = "isFile";
inline constexpr std::string_view digestDiffers = "digestDiffers";
inline constexpr std::string_view contentChanged = "contentChanged";
inline constexpr std::string_view rangeOutside = "rangeOutside";
} // namespace reasons

/// What a message about a change ends with when nobody knows whether it was made.
inline constexpr const char* unknownOutcome = "It may or may not have been done; check before you try again.";

/// Whether it is of this type and, if one is given, meets the condition.
template <class Error, class Condition = bool (*)(const Error&)>
bool isError(
    const std::exception_ptr& error, Condition condition = [](const Error&) { return true; })
{
    try {
        std::rethrow_exception(error);
    } catch (const Error& failure) {
        return condition(failure);
    } catch (...) {
        return false;
    }
}

/// The failure behind any exception of a request or of this program: the service's sentence with the exit code of its
/// kind and, for a reason that is known here, with advice.
Failure explain(std::exception_ptr error);

/// Whether the service refused the request for this reason.
bool isRefusal(const std::exception_ptr& error, std::string_view reason);

/// Whether it was certainly not done: the service has said so, or it was taken back.
bool isRefused(const std::exception_ptr& error);

/// Whether something else has arrived at the service than was sent.
bool isSentDamaged(const std::exception_ptr& error);

/// That it has, and that the service has refused it.
NothingDone sentDamaged();

/// Whether the service wants a login first: there is no session, or it has ended.
bool isNotLoggedIn(const std::exception_ptr& error);

/// Whether `error` means that further requests cannot succeed either: no connection could be made, or a gateway could
/// make none.
bool isServiceGone(const std::exception_ptr& error);

/// Whether nothing was changed and the same request may well succeed a moment later: there was no connection, or it was
/// lost while the service was only asked, or before it had all of a content; or the service is busy.
bool isTransient(const std::exception_ptr& error);

/// Whether the connection was lost so that the service may have made the change, or not.
bool isUnknownOutcome(const std::exception_ptr& error);

/// "WHAT: SENTENCE" with the code of the failure; what was being done comes first, unless the sentence names it.
Failure about(const std::string& what, const Failure& failure);

} // namespace tarncli
