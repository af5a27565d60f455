#include "cli/service/ErrorMapping.h"

#include "cli/terminal/Text.h"
#include "tarn/protocol/ErrorText.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/transfer/DigestMismatch.h"

#include "tarnhost/TransportError.h"

#include <Poco/Exception.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <new>
#include <system_error>

namespace tarncli {

namespace {

namespace texts = connector::tarn::ErrorText;
using connector::host::TransportError;
using connector::host::TransportPhase;
using connector::tarn::ErrorKind;
using connector::tarn::TarnError;

struct Advice {
    std::string_view reason;
    std::string_view text; ///< what to do, shown after the sentence
};

constexpr Advice advices[] = {
    {reasons::notFound, "Check the path with `tarn ls`."},
    {reasons::parentMissing, "Make it first with `tarn mkdir -p`."},
    {"unknownUser", "`tarn grant --pending` lets the grant wait for that user."},
    {"unknownPermission", "`tarn grants` lists them."},
    {"unknownLink", "`tarn link --list` lists them."},
    {"unknownVersion", "`tarn versions` lists them."},
    {"badToken", "Log in with `tarn login`."},
    {"sessionEnded", "Use `tarn login`."},
    {reasons::fileExists,
     "Use --force to replace its content, or --new-version to keep the old one as a version."},
    {"folderNotEmpty", "Use `tarn rm -r` to delete it and everything in it."},
    {"targetExists", "Use `tarn mv --force` to replace it."},
};

constexpr const char* unreadableReply =
    "The reply cannot be understood. Check that the endpoint is a Tarn service.";

struct KindShown {
    ErrorKind kind;
    ExitCode code;
    const char* word; ///< as in JSON
};

constexpr KindShown kinds[] = {
    {ErrorKind::invalidRequest, ExitCode::usage, "invalidRequest"},
    {ErrorKind::notLoggedIn, ExitCode::notLoggedIn, "notLoggedIn"},
    {ErrorKind::notAllowed, ExitCode::notAllowed, "notAllowed"},
    {ErrorKind::notFound, ExitCode::notFound, "notFound"},
    {ErrorKind::conflict, ExitCode::conflict, "conflict"},
    {ErrorKind::tooLarge, ExitCode::failure, "tooLarge"},
    {ErrorKind::outOfSpace, ExitCode::failure, "outOfSpace"},
    {ErrorKind::unavailable, ExitCode::failure, "unavailable"},
    {ErrorKind::unknownOutcome, ExitCode::failure, "unknownOutcome"},
    {ErrorKind::serviceFailure, ExitCode::failure, "serviceFailure"},
    {ErrorKind::unreadableReply, ExitCode::failure, "unreadableReply"},
    {ErrorKind::notSupported, ExitCode::failure, "notSupported"},
};

const KindShown& shownFor(ErrorKind kind)
{
    const auto* shown =
        std::find_if(std::begin(kinds), std::end(kinds), [&](const auto& each) { return each.kind == kind; });
    return shown == std::end(kinds) ? shownFor(ErrorKind::serviceFailure) : *shown;
}

Failure fromRefusal(const TarnError& refusal)
{
    const auto& [kind, code, word] = shownFor(refusal.kind());
    if (refusal.reason() == reasons::digestDiffers) return sentDamaged();
    if (kind == ErrorKind::unreadableReply) return {code, unreadableReply, word};
    if (refusal.what() == std::string_view(texts::unknownError))
        return {code,
                "The service refused the request without saying why. Check that the endpoint is a Tarn "
                "service.",
                word};
    // A sentence may hold names, and the service may be anyone's: neither commands the terminal.
    auto shown = escaped(refusal.what());
    const auto* advice = std::find_if(std::begin(advices), std::end(advices),
                                      [&](const auto& each) { return each.reason == refusal.reason(); });
    if (advice != std::end(advices)) shown.append(" ").append(advice->text);
    return {code, shown, word};
}

/// A number in a reply that is none: the parsers of numbers give nothing but their name.
bool isUnreadableNumber(std::string_view text)
{
    return text == "stoul" || text == "stoull" || text == "stoll";
}

/// Nobody known has signed the certificate: the one case that --ca-file mends. The network layer tells it apart
/// from the others in words alone.
bool isUnknownAuthority(const TransportError& failure)
{
    return failure.phase() == TransportPhase::secure &&
           (failure.reason().find("issuer") != std::string::npos ||
            failure.reason().find("self-signed") != std::string::npos);
}

/// A login may have been made, too, but nobody would look for it.
bool leavesDoubt(const TransportError& failure)
{
    return failure.mayHaveHappened() && !failure.url().ends_with("/service/v1/login");
}

Failure fromTransport(const TransportError& failure)
{
    const bool isOurs =
        failure.phase() == TransportPhase::prepare || failure.phase() == TransportPhase::reply;
    auto sentence = escaped(failure.what());
    if (!sentence.ends_with('.')) sentence += '.';
    if (leavesDoubt(failure)) sentence += std::string(" ") + unknownOutcome;
    if (isUnknownAuthority(failure))
        sentence += " If you trust the authority that issued the certificate, name its file with --ca-file.";
    const char* word = leavesDoubt(failure)                       ? shownFor(ErrorKind::unknownOutcome).word
                       : failure.phase() == TransportPhase::reply ? shownFor(ErrorKind::unreadableReply).word
                                                                  : nullptr;
    return {isOurs ? ExitCode::failure : ExitCode::unreachable, sentence, word};
}

} // namespace

Failure explain(std::exception_ptr error)
{
    try {
        std::rethrow_exception(std::move(error));
    } catch (const Failure& failure) {
        return failure;
    } catch (const connector::host::TransportError& failure) {
        return fromTransport(failure);
    } catch (const TarnError& failure) {
        return fromRefusal(failure);
    } catch (const Poco::Exception& failure) {
        return {ExitCode::failure, escaped(failure.displayText())};
    } catch (const std::bad_alloc&) {
        return {ExitCode::failure, "There is not enough memory."};
    } catch (const std::filesystem::filesystem_error& failure) {
        const auto file = escaped(failure.path1().string());
        return {ExitCode::failure,
                (file.empty() ? "" : "Could not use " + file + ": ") + failure.code().message() + "."};
    } catch (const std::exception& failure) {
        if (isUnreadableNumber(failure.what()))
            return {ExitCode::failure, unreadableReply, shownFor(ErrorKind::unreadableReply).word};
        return {ExitCode::failure, escaped(failure.what())};
    } catch (...) {
        return {ExitCode::failure, "An unknown error occurred."};
    }
}

bool isRefusal(const std::exception_ptr& error, std::string_view reason)
{
    return isError<TarnError>(error, [&](const TarnError& refusal) { return refusal.reason() == reason; });
}

bool isRefused(const std::exception_ptr& error)
{
    return isError<NothingDone>(error) || isError<TarnError>(error, [](const TarnError& refusal) {
               return refusal.kind() != ErrorKind::unknownOutcome &&
                      refusal.kind() != ErrorKind::unreadableReply;
           });
}

bool isSentDamaged(const std::exception_ptr& error)
{
    return isError<connector::tarn::StoredMismatch>(error) || isRefusal(error, reasons::digestDiffers);
}

NothingDone sentDamaged()
{
    return {ExitCode::failure, "Something between here and the service changes what is sent; nothing was "
                               "stored. Store it again when that is mended."};
}

bool isNotLoggedIn(const std::exception_ptr& error)
{
    return isError<TarnError>(
        error, [](const TarnError& refusal) { return refusal.kind() == ErrorKind::notLoggedIn; });
}

bool isServiceGone(const std::exception_ptr& error)
{
    return isError<TransportError>(error, [](const TransportError& failure) {
        return failure.phase() == TransportPhase::connect || failure.phase() == TransportPhase::secure ||
               failure.phase() == TransportPhase::gateway;
    });
}

bool isTransient(const std::exception_ptr& error)
{
    return isError<TarnError>(
               error, [](const TarnError& refusal) { return refusal.kind() == ErrorKind::unavailable; }) ||
           isError<TransportError>(error, [](const TransportError& failure) {
               return failure.isInterruption() && !leavesDoubt(failure);
           });
}

bool isUnknownOutcome(const std::exception_ptr& error)
{
    return isError<TarnError>(
               error, [](const TarnError& refusal) { return refusal.kind() == ErrorKind::unknownOutcome; }) ||
           isError<TransportError>(error, [](const TransportError& failure) {
               return failure.isInterruption() && leavesDoubt(failure);
           });
}

Failure about(const std::string& what, const Failure& failure)
{
    const std::string_view sentence = failure.what();
    const bool isNamed = sentence.starts_with(what + " ") || sentence.find(" " + what + ":") != sentence.npos;
    return isNamed ? failure : failure.saying(what + ": " + failure.what());
}

} // namespace tarncli
