// Which service is meant: a slip in the configuration must not send files elsewhere.
#include "cli/service/Profile.h"
#include "cli/service/Credentials.h"
#include "cli/terminal/Failure.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace tarncli {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class ProfileTest : public testing::Test {
protected:
    ProfileTest()
    {
        auto name = (fs::temp_directory_path() / "tarn-profile-test-XXXXXX").string();
        folder = mkdtemp(name.data());
        for (const char* variable : {"TARN_ENDPOINT", "TARN_USER"})
            unsetenv(variable);
        setenv("XDG_STATE_HOME", folder.c_str(), 1);
    }

    ~ProfileTest() override { fs::remove_all(folder); }

    Profiles load(const std::string& text) const
    {
        std::ofstream(folder / "config.toml") << text;
        return Profiles::load(folder / "config.toml");
    }

    std::string refusal(const std::string& text) const
    {
        try {
            load(text);
        } catch (const Failure& failure) {
            return failure.what();
        }
        return "(accepted)";
    }

    fs::path folder;
};

constexpr const char* twoProfiles = "default_profile = 'home'\n"
                                    "[profiles.home]\n"
                                    "endpoint = 'http://home:7070/'\n"
                                    "user = 'anna'\n"
                                    "[profiles.work]\n"
                                    "endpoint = 'https://work.example.org'\n";

TEST_F(ProfileTest, FlagBeatsEnvironmentBeatsProfileBeatsLocalStore)
{
    const auto profiles = load(twoProfiles);
    EXPECT_TRUE(chooseService("", "", Profiles{}).isLocal());
    EXPECT_EQ(chooseService("", "", profiles).endpoint, "http://home:7070");
    EXPECT_EQ(chooseService("", "", profiles).user, "anna");
    EXPECT_EQ(chooseService("", "work", profiles).endpoint, "https://work.example.org");
    EXPECT_EQ(chooseService("", "work", profiles).user, "");
    setenv("TARN_ENDPOINT", "http://env:1", 1);
    EXPECT_EQ(chooseService("", "", profiles).endpoint, "http://env:1");
    EXPECT_EQ(chooseService("", "", profiles).user, ""); // the default profile's user belongs to its endpoint
    EXPECT_EQ(chooseService("http://flag:1", "", profiles).endpoint, "http://flag:1");
    unsetenv("TARN_ENDPOINT");
    EXPECT_THROW(chooseService("", "wrok", profiles), Failure);
}

TEST_F(ProfileTest, NamesTheLineOfWhatItDoesNotUnderstand)
{
    EXPECT_THAT(refusal("a = 1\n"), HasSubstr("config.toml, line 1"));
    EXPECT_THAT(refusal("[profiles.x]\nendpoint = 'http://h'\nuesr = 'a'\n"), HasSubstr("line 3"));
    EXPECT_THAT(refusal("[profiles.x]\nendpoint = 5\n"), HasSubstr("text in quotes"));
    EXPECT_THAT(refusal("[profiles.x]\n"), HasSubstr("needs an endpoint"));
    EXPECT_THAT(refusal("[profiles.x\n"), HasSubstr("line 1"));
    EXPECT_TRUE(Profiles::load(folder / "none.toml").byName.empty());
}

TEST_F(ProfileTest, KeepsCredentialsPerEndpointAndProfileAndToItself)
{
    const CredentialStore one({"http://h:1", "", ""});
    const CredentialStore other({"http://h-1", "", ""});
    EXPECT_FALSE(one.load());
    one.save({"alice", "session", ""});
    other.save({"bob", "another", "token"});
    EXPECT_EQ(one.load()->user, "alice");
    EXPECT_EQ(one.load()->token, "");
    EXPECT_EQ(other.load()->token, "token");

    struct stat status {};

    ASSERT_EQ(stat(other.file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    chmod(one.file().c_str(), 0644);
    EXPECT_THROW(one.load(), Failure);
    EXPECT_TRUE(one.remove());
    EXPECT_FALSE(one.remove());
}

} // namespace
} // namespace tarncli
