#pragma once

#include "cli/terminal/Failure.h"

#include <exception>
#include <string>
#include <string_view>

namespace tarncli {

/// Sentences of the service that change what a verb does next.
namespace answers {
inline constexpr std::string_view notFound = "File not found.";
inline constexpr std::string_view sessionEnded = "Your session has ended. Log in again.";
inline constexpr std::string_view fileExists = "The file already exists.";
inline constexpr std::string_view folderExists = "The folder already exists.";
inline constexpr std::string_view busy = "The service is busy and has changed nothing. Try again.";
inline constexpr std::string_view isFile = "The path names a file, not a folder.";
} // namespace answers

/// What a message about a change ends with when nobody knows whether it was made.
inline constexpr const char* unknownOutcome = "It may or may not have been done; check before you try again.";

/// The failure behind any exception of a request or of this program.
///
/// The library hands on the service's sentence and no status code, so the exit code and the advice come from
/// the sentence. One that is not in the table is shown as it is, with exit code 1.
Failure explain(std::exception_ptr error);

/// Whether `error` is exactly this answer of the service.
bool isAnswer(const std::exception_ptr& error, std::string_view sentence);

/// Whether `error` means that further requests cannot succeed either: no connection could be made.
bool isServiceGone(const std::exception_ptr& error);

/// Whether nothing was changed and the same request may well succeed a moment later: there was no connection, or it was
/// lost while the service was only asked, or before it had all of a content; or the service is busy.
bool isTransient(const std::exception_ptr& error);

/// Whether the connection was lost so that the service may have made the change, or not.
bool isUnknownOutcome(const std::exception_ptr& error);

/// "WHAT: SENTENCE" with the code of the failure; what was being done comes first.
Failure about(const std::string& what, const Failure& failure);

} // namespace tarncli
