// What a failure tells people and scripts: an exit code that is not so, or silence about a change that may have happened.
#include "cli/service/ErrorMapping.h"
#include "tarnhost/TransportError.h"

#include <gmock/gmock.h>

namespace tarncli {
namespace {

using connector::host::TransportError;
using connector::host::TransportPhase;
using testing::HasSubstr;
using testing::Not;

struct Mapped {
    const char* sentence;
    ExitCode code;
    const char* shown;
};

TEST(ErrorMapping, FindsTheExitCodeInTheServicesSentence)
{
    const Mapped rows[] = {
        {"File not found.", ExitCode::notFound, "tarn ls"},
        {"The folder \"/a\" does not exist.", ExitCode::notFound, "mkdir -p"},
        {"There is no user named \"eve\".", ExitCode::notFound, "--pending"},
        {"The authentication token is not valid.", ExitCode::notLoggedIn, "tarn login"},
        {"Your session has ended. Log in again.", ExitCode::notLoggedIn, "tarn login"},
        {"You may read this item but not change or share it.", ExitCode::notAllowed, ""},
        {"The file already exists.", ExitCode::conflict, "--force"},
        {"The folder is not empty.", ExitCode::conflict, "rm -r"},
        {"The path is not valid: a name is empty.", ExitCode::usage, "a name is empty"},
        {"Something new.", ExitCode::failure, "Something new."},
        {"No.\n\x1b[31m\u009b31m\u202e", ExitCode::failure, "No.\\n\\u{1b}[31m\\u{9b}31m\\u{202e}"},
        {"TARN error: <html>", ExitCode::failure, "endpoint"},
        {"Unknown error.", ExitCode::failure, "endpoint"},
        {"stoull", ExitCode::failure, "endpoint"},
    };
    for (const auto& row : rows) {
        const auto failure = explain(std::make_exception_ptr(std::runtime_error(row.sentence)));
        EXPECT_EQ(failure.code(), row.code) << row.sentence;
        EXPECT_THAT(failure.what(), HasSubstr(row.shown));
    }
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
