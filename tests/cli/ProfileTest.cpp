// Which service is meant: a slip in the configuration must not send files elsewhere.
#include "cli/service/Credentials.h"
#include "cli/service/ProfileFile.h"
#include "cli/service/ProxyVariables.h"
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
        unsetAll();
        setenv("XDG_STATE_HOME", folder.c_str(), 1);
    }

    ~ProfileTest() override
    {
        unsetAll();
        fs::remove_all(folder);
    }

    /// What chooses the service; whatever a test sets is gone before the next, also when it fails.
    static void unsetAll()
    {
        for (const char* variable :
             {"TARN_ENDPOINT", "TARN_PROFILE", "TARN_USER", "SSL_CERT_FILE", "http_proxy", "https_proxy",
              "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY", "XDG_STATE_HOME"})
            unsetenv(variable);
    }

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

ServiceFlags flag(std::string ServiceFlags::*which, const std::string& value)
{
    ServiceFlags flags;
    flags.*which = value;
    return flags;
}

constexpr const char* twoProfiles = "default_profile = 'home'\n"
                                    "[profiles.home]\n"
                                    "endpoint = 'https://home:7070/'\n"
                                    "user = 'anna'\n"
                                    "[profiles.work]\n"
                                    "endpoint = 'https://work.example.org'\n"
                                    "ca_file = 'work.pem'\n"
                                    "proxy = 'none'\n";

TEST_F(ProfileTest, FlagBeatsEnvironmentBeatsProfileBeatsLocalStore)
{
    const auto profiles = load(twoProfiles);
    EXPECT_TRUE(chooseService({}, Profiles{}).isLocal());
    EXPECT_EQ(chooseService({}, profiles).endpoint, "https://home:7070");
    EXPECT_EQ(chooseService({}, profiles).user, "anna");
    setenv("SSL_CERT_FILE", "/env.pem", 1);
    setenv("all_proxy", "http://env:3128", 1);
    EXPECT_EQ(chooseService({}, profiles).caFile, "/env.pem");
    EXPECT_EQ(chooseService({}, profiles).proxy, "http://env:3128");
    const auto work = chooseService(flag(&ServiceFlags::profile, "work"), profiles);
    EXPECT_EQ(work.endpoint, "https://work.example.org");
    EXPECT_EQ(work.user, "");
    EXPECT_EQ(work.caFile, folder / "work.pem");
    EXPECT_EQ(work.proxy, "");
    auto flagged = flag(&ServiceFlags::profile, "work");
    flagged.caFile = "flag.pem";
    EXPECT_EQ(chooseService(flagged, profiles).caFile, "flag.pem");
    setenv("TARN_ENDPOINT", "https://env:1", 1);
    EXPECT_EQ(chooseService({}, profiles).endpoint, "https://env:1");
    EXPECT_EQ(chooseService({}, profiles).user, ""); // the default profile's user belongs to its endpoint
    EXPECT_EQ(chooseService(flag(&ServiceFlags::endpoint, "https://flag:1"), profiles).endpoint,
              "https://flag:1");
    unsetenv("TARN_ENDPOINT");
    EXPECT_THROW(chooseService(flag(&ServiceFlags::profile, "wrok"), profiles), Failure);
    setenv("TARN_PROFILE", "work", 1);
    EXPECT_EQ(chooseService({}, profiles).endpoint, "https://work.example.org");
    EXPECT_EQ(chooseService(flag(&ServiceFlags::profile, "home"), profiles).user, "anna");
    EXPECT_TRUE(chooseService(flag(&ServiceFlags::profile, "local"), profiles).isLocal());
}

TEST_F(ProfileTest, SendsNoTokenInTheClearBeyondThisMachine)
{
    for (const auto* near : {"http://127.0.0.1:7070", "http://localhost", "https://files.example.org"})
        EXPECT_NO_THROW(chooseService(flag(&ServiceFlags::endpoint, near), {})) << near;
    for (const auto* far : {"http://10.0.0.1", "http://127.example.org", "http://localhost.example.org"}) {
        EXPECT_THROW(chooseService(flag(&ServiceFlags::endpoint, far), {}), Failure) << far;
        auto insisting = flag(&ServiceFlags::endpoint, far);
        insisting.insecure = true;
        EXPECT_EQ(chooseService(insisting, {}).endpoint, far);
    }
}

TEST_F(ProfileTest, TakesTheProxyThatTheEnvironmentNamesForThisHost)
{
    setenv("http_proxy", "plain", 1);
    setenv("HTTPS_PROXY", "tls", 1);
    setenv("no_proxy", "near.org, .b.example.org", 1);
    const std::pair<const char*, const char*> rows[] = {
        {"http://a.org", "plain"},  {"https://a.org:1/x", "tls"},      {"https://near.org", ""},
        {"https://x.near.org", ""}, {"https://anear.org", "tls"},      {"https://c.b.example.org", ""},
        {"http://127.0.0.1:1", ""}, {"https://b.example.org.x", "tls"}};
    for (const auto& [endpoint, proxy] : rows)
        EXPECT_EQ(proxyOfEnvironment(endpoint), proxy) << endpoint;
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

/// What else stands in the file stays.
TEST_F(ProfileTest, AddsProfilesAndChoosesTheDefaultOne)
{
    const auto file = folder / "config.toml";
    const auto text = [&] { return readConfiguration(file); };
    addProfile(file, "first", {.endpoint = "https://one", .tokenCommand = "echo \"a\\\nb\""});
    EXPECT_EQ(Profiles::load(file).byName.at("first").tokenCommand, "echo \"a\\\nb\"");
    load("# mine\n[profiles.home] # near\nendpoint = 'https://home'");
    fs::rename(file, folder / "real.toml");
    fs::create_symlink("real.toml", file);
    useProfile(file, "home");
    addProfile(file, "work", {.endpoint = "https://work", .user = "alice", .insecure = true});
    useProfile(file, "work");
    EXPECT_EQ(text(),
              "default_profile = 'work'\n# mine\n[profiles.home] # near\nendpoint = 'https://home'\n\n"
              "[profiles.work]\nendpoint = 'https://work'\nuser = 'alice'\ninsecure = true\n");
    EXPECT_TRUE(fs::is_symlink(file));
    const auto before = text();
    EXPECT_THROW(addProfile(file, "work", {.endpoint = "https://x"}), Failure);
    EXPECT_THROW(addProfile(file, "a b", {.endpoint = "https://x"}), Failure);
    EXPECT_THROW(useProfile(file, "none"), Failure);
    EXPECT_EQ(text(), before);
}

TEST_F(ProfileTest, KeepsCredentialsPerEndpointAndUserAndToItself)
{
    const auto mask = umask(0); // permissions must not depend on it
    const CredentialStore one("http://h:1");
    const CredentialStore other("http://h-1");
    EXPECT_FALSE(one.load("alice"));
    one.save({"alice", "session", ""});
    one.save({"bob", "of bob", ""});
    other.save({"alice", "another", "token"});
    one.setLastUser("alice");
    EXPECT_EQ(one.lastUser(), "alice");
    EXPECT_EQ(other.lastUser(), "");
    EXPECT_EQ(one.load("alice")->sessionId, "session");
    EXPECT_EQ(one.load("alice")->token, "");
    EXPECT_EQ(one.load("bob")->sessionId, "of bob");
    EXPECT_EQ(other.load("alice")->token, "token");

    for (const auto& entry : fs::recursive_directory_iterator(folder / "tarn"))
        EXPECT_EQ(entry.status().permissions() & fs::perms(077), fs::perms::none) << entry;
    umask(mask);
    chmod(one.file("bob").c_str(), 0644);
    EXPECT_THROW(one.load("bob"), Failure);
    EXPECT_TRUE(one.remove("alice"));
    EXPECT_EQ(one.lastUser(), "");
    EXPECT_FALSE(one.remove("alice"));
}

} // namespace
} // namespace tarncli
