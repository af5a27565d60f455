#include "cli/service/ErrorMapping.h"

#include "cli/terminal/Text.h"
#include "tarn/protocol/ErrorText.h"
#include "tarnhost/TransportError.h"

#include <Poco/Exception.h>

#include <new>
#include <system_error>

namespace tarncli {

namespace {

namespace texts = connector::tarn::ErrorText;
using connector::host::TransportError;
using connector::host::TransportPhase;

enum class Match { whole, start };

struct Row {
    std::string_view sentence;
    ExitCode code;
    std::string_view advice; ///< what to do, shown after the sentence
    Match match = Match::whole;
};

/// The service sends fixed sentences and no codes; one that holds a name is known by its beginning.
constexpr Row rows[] = {
    {answers::notFound, ExitCode::notFound, "Check the path with `tarn ls`."},
    {"The folder \"", ExitCode::notFound, "Make it first with `tarn mkdir -p`.", Match::start},
    {"There is no user named \"", ExitCode::notFound,
     "`tarn grant --pending` lets the grant wait for that user.", Match::start},
    {"There is no permission with this id.", ExitCode::notFound, "`tarn grants` lists them."},
    {"The file has no such version.", ExitCode::notFound, "`tarn versions` lists them."},

    {"The authentication token is not valid.", ExitCode::notLoggedIn, "Log in with `tarn login`."},
    {answers::sessionEnded, ExitCode::notLoggedIn, "Use `tarn login`."},
    {"Too many logins with a wrong token come from your address.", ExitCode::notLoggedIn, "", Match::start},

    {"You may read this item but not change or share it.", ExitCode::notAllowed, ""},

    {answers::fileExists, ExitCode::conflict,
     "Use --force to replace its content, or --new-version to keep the old one as a version."},
    {answers::folderExists, ExitCode::conflict, ""},
    {"The path names a folder, not a file.", ExitCode::conflict, ""},
    {answers::isFile, ExitCode::conflict, ""},
    {"The folder is not empty.", ExitCode::conflict, "Use `tarn rm -r` to delete it and everything in it."},
    {"The root folder cannot be deleted, moved or replaced.", ExitCode::conflict, ""},
    {"The target of the move already exists.", ExitCode::conflict, "Use `tarn mv --force` to replace it."},
    {"A file can replace only a file, and a folder only an empty folder.", ExitCode::conflict, ""},
    {"A folder cannot be moved into itself.", ExitCode::conflict, ""},
    {"The item already belongs to this user.", ExitCode::conflict, ""},

    {answers::busy, ExitCode::unreachable, ""},

    {"The path is not valid: ", ExitCode::usage, "", Match::start},
    {"The user name is not valid: ", ExitCode::usage, "", Match::start},
};

constexpr const char* unreadableReply =
    "The reply cannot be understood. Check that the endpoint is a Tarn service.";

const Row* rowOf(std::string_view sentence)
{
    for (const auto& row : rows)
        if (row.match == Match::whole ? sentence == row.sentence : sentence.starts_with(row.sentence))
            return &row;
    return nullptr;
}

/// What a reply that is not the service's own turns into, down to the names of the number parsers.
bool isUnreadableReply(std::string_view text)
{
    return text.starts_with(texts::notXmlPrefix) || text == "stoul" || text == "stoull" || text == "stoll";
}

Failure fromSentence(const std::string& sentence)
{
    // A sentence may hold names, and the service may be anyone's: neither commands the terminal.
    const auto shown = escaped(sentence);
    if (const auto* row = rowOf(sentence))
        return {row->code, row->advice.empty() ? shown : shown + " " + std::string(row->advice)};
    if (isUnreadableReply(sentence)) return {ExitCode::failure, unreadableReply};
    if (sentence == texts::unknownError)
        return {
            ExitCode::failure,
            "The service refused the request without saying why. Check that the endpoint is a Tarn service."};
    return {ExitCode::failure, shown};
}

/// Nobody known has signed the certificate: the one case that --ca-file mends. The network layer tells it apart from the
/// others in words alone.
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

/// A certificate stays as it is, however often it is looked at.
bool isInterruption(const TransportError& failure)
{
    switch (failure.phase()) {
    case TransportPhase::connect:
    case TransportPhase::exchange:
        return true;
    case TransportPhase::secure:
        return failure.reason().find("certificate") == std::string::npos;
    default:
        return false;
    }
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
    return {isOurs ? ExitCode::failure : ExitCode::unreachable, sentence};
}

template <class Condition>
bool isTransportError(const std::exception_ptr& error, Condition condition)
{
    try {
        std::rethrow_exception(error);
    } catch (const TransportError& failure) {
        return condition(failure);
    } catch (...) {
        return false;
    }
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
    } catch (const Poco::Exception& failure) {
        return {ExitCode::failure, escaped(failure.displayText())};
    } catch (const std::bad_alloc&) {
        return {ExitCode::failure, "There is not enough memory."};
    } catch (const std::exception& failure) {
        return fromSentence(failure.what());
    } catch (...) {
        return {ExitCode::failure, "An unknown error occurred."};
    }
}

bool isAnswer(const std::exception_ptr& error, std::string_view sentence)
{
    try {
        std::rethrow_exception(error);
    } catch (const Failure&) {
        return false; // our own words, even where they quote the service's
    } catch (const std::exception& failure) {
        return failure.what() == sentence;
    } catch (...) {
        return false;
    }
}

bool isServiceGone(const std::exception_ptr& error)
{
    return isTransportError(error, [](const TransportError& failure) {
        return failure.phase() == TransportPhase::connect || failure.phase() == TransportPhase::secure;
    });
}

bool isTransient(const std::exception_ptr& error)
{
    return isAnswer(error, answers::busy) || isTransportError(error, [](const TransportError& failure) {
               return isInterruption(failure) && !leavesDoubt(failure);
           });
}

bool isUnknownOutcome(const std::exception_ptr& error)
{
    return isTransportError(
        error, [](const TransportError& failure) { return isInterruption(failure) && leavesDoubt(failure); });
}

Failure about(const std::string& what, const Failure& failure)
{
    return {failure.code(), what + ": " + failure.what()};
}

} // namespace tarncli
