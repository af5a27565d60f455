#pragma once

#include "cli/service/ErrorMapping.h"

#include <string>

/// What a true answer has.
///
/// The library reads leniently: what a reply lacks, or says twice, is empty. Whoever goes on with it, or
/// tells people that something was done, asks here first.
namespace tarncli {

/// An answer to a question. @throws Failure when it lacks `what`
inline void requireTold(bool told, const std::string& what)
{
    if (!told)
        throw Failure(ExitCode::failure, "The service's answer lacks " + what +
                                             ". Check that the endpoint is that of a Tarn service.");
}

/// The answer to a change. @throws Failure when it lacks `what`: then nobody knows whether it was made
inline void requireConfirmed(bool confirmed, const std::string& what)
{
    if (!confirmed)
        throw Failure(ExitCode::failure, "The service's answer lacks " + what + ". " + unknownOutcome);
}

} // namespace tarncli
