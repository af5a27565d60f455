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

Failure explained(TransportPhase phase, const char* reason, bool mayHaveHappened)
{
    return explain(
        std::make_exception_ptr(TransportError(phase, "https://h/x", "h:443", reason, mayHaveHappened)));
}

TEST(ErrorMapping, TellsOfALostReplyWhatIsKnown)
{
    constexpr auto unknown = "No answer says whether it was done";
    const auto lost = explained(TransportPhase::exchange, "Connection reset", true);
    EXPECT_EQ(lost.code(), ExitCode::unreachable);
    EXPECT_THAT(lost.what(), HasSubstr(unknown));
    EXPECT_THAT(explained(TransportPhase::exchange, "Connection reset", false).what(),
                Not(HasSubstr(unknown)));
    EXPECT_EQ(explained(TransportPhase::prepare, "A header has a line break", false).code(),
              ExitCode::failure);

    EXPECT_THAT(explained(TransportPhase::secure, "unable to get local issuer certificate", false).what(),
                HasSubstr("--ca-file"));
    EXPECT_THAT(explained(TransportPhase::secure, "certificate has expired", false).what(),
                Not(HasSubstr("--ca-file")));
}

} // namespace
} // namespace tarncli
