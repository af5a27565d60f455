// What a failure tells people and scripts: an exit code that is not so, or silence about a change that may have happened.
#include "cli/service/ErrorMapping.h"
#include "tarn/protocol/TarnError.h"
#include "tarnhost/TransportError.h"

#include <gmock/gmock.h>

namespace tarncli {
namespace {

using connector::host::TransportError;
using connector::host::TransportPhase;
using connector::tarn::ErrorKind;
using connector::tarn::errorKindOf;
using connector::tarn::TarnError;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// However the service words it, scripts and people are told the same.
TEST(ErrorMapping, FindsExitCodeAndAdviceWhateverTheSentence)
{
    const struct {
        std::uint16_t status;
        const char* reason;
        ExitCode code;
        const char* shown;
    } rows[] = {
        {404, "notFound", ExitCode::notFound, "tarn ls"},
        {409, "parentMissing", ExitCode::notFound, "mkdir -p"},
        {400, "unknownUser", ExitCode::notFound, "--pending"},
        {401, "badToken", ExitCode::notLoggedIn, "tarn login"},
        {401, "", ExitCode::notLoggedIn, ""},
        {403, "readOnly", ExitCode::notAllowed, ""},
        {409, "fileExists", ExitCode::conflict, "--force"},
        {400, "badPath", ExitCode::usage, ""},
        {503, "busy", ExitCode::failure, ""},
        {507, "storageFull", ExitCode::failure, ""},
    };

    for (const auto& row : rows) {
        const auto failure = explain(std::make_exception_ptr(
            TarnError(errorKindOf(row.status, row.reason), "Reworded.", row.status, row.reason)));
        EXPECT_EQ(failure.code(), row.code) << row.reason;
        EXPECT_THAT(failure.what(), AllOf(StartsWith("Reworded."), HasSubstr(row.shown)));
    }
}

TEST(ErrorMapping, LetsNoReplyCommandTheTerminalAndNamesWhatIsNoTarn)
{
    const std::pair<TarnError, const char*> rows[] = {
        {{ErrorKind::conflict, "No.\n\x1b[31m\u009b31m\u202e"}, "No.\\n\\u{1b}[31m\\u{9b}31m\\u{202e}"},
        {{ErrorKind::unreadableReply, "TARN error: <html>"}, "endpoint"},
        {{ErrorKind::serviceFailure, "Unknown error."}, "endpoint"},
    };
    for (const auto& [error, shown] : rows)
        EXPECT_THAT(explain(std::make_exception_ptr(error)).what(), HasSubstr(shown));
    EXPECT_THAT(explain(std::make_exception_ptr(std::out_of_range("stoull"))).what(), HasSubstr("endpoint"));
}

TEST(ErrorMapping, TellsOfALostConnectionWhatIsKnown)
{
    constexpr auto unknown = "It may or may not have been done";

    const struct {
        TransportPhase phase;
        const char* reason;
        bool mayHaveHappened;
        ExitCode code;
        testing::Matcher<std::string> told;
        bool isGone = false;
    } rows[] = {
        {TransportPhase::connect, "Connection refused", false, ExitCode::unreachable,
         "Could not connect to h:443: Connection refused.", true},
        {TransportPhase::exchange, "reset", true, ExitCode::unreachable, HasSubstr(unknown)},
        {TransportPhase::exchange, "reset", false, ExitCode::unreachable, Not(HasSubstr(unknown))},
        {TransportPhase::prepare, "A header has a line break", false, ExitCode::failure, testing::_},
        {TransportPhase::secure, "unable to get local issuer certificate", false, ExitCode::unreachable,
         HasSubstr("--ca-file"), true},
        {TransportPhase::secure, "certificate has expired", false, ExitCode::unreachable,
         Not(HasSubstr("--ca-file")), true},
    };

    for (const auto& row : rows) {
        const auto error = std::make_exception_ptr(
            TransportError(row.phase, "https://h/x", "h:443", row.reason, row.mayHaveHappened));
        EXPECT_EQ(explain(error).code(), row.code) << row.reason;
        EXPECT_THAT(explain(error).what(), row.told);
        EXPECT_EQ(isServiceGone(error), row.isGone) << row.reason;
    }
}

} // namespace
} // namespace tarncli
