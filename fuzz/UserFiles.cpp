// What people and their files tell the command line: a first byte that picks the reader, then the text. It is
// taken or refused with a failure that says why; nothing else is thrown.
#include "cli/remote/RemotePath.h"
#include "cli/service/Credentials.h"
#include "cli/service/Endpoint.h"
#include "cli/service/Profile.h"
#include "cli/terminal/Failure.h"
#include "fuzz/Fuzz.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace {

using namespace tarncli;

/// A home of its own, gone when the program ends.
class Home {
public:
    Home()
    {
        setenv("XDG_STATE_HOME", folder.c_str(), 1);
        setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    }

    ~Home() { std::filesystem::remove_all(folder); }

    static void write(const std::filesystem::path& file, std::string_view text)
    {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }

    const std::filesystem::path folder = makeFolder();

private:
    static std::string makeFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "tarn-fuzz.XXXXXX").string();
        tarnfuzz::require(mkdtemp(name.data()) != nullptr, "there is a temporary folder");
        return name;
    }
};

void readProfiles(const Home& home, std::string_view text)
{
    const auto file = home.folder / "config.toml";
    Home::write(file, text);
    chooseService({}, Profiles::load(file));
}

void readCredentials(const Home&, std::string_view text)
{
    const CredentialStore store("http://127.0.0.1:7070");
    Home::write(store.file("alice"), text);
    store.load("alice");
}

void readEndpoint(const Home&, std::string_view text)
{
    const auto endpoint = checkedEndpoint(std::string(text));
    tarnfuzz::require(checkedEndpoint(endpoint) == endpoint, "a checked endpoint stays as it is");
}

void readRemotePath(const Home&, std::string_view text)
{
    const auto path = addressable(std::string(text));
    tarnfuzz::require(RemotePath::parse(path.text()).text() == path.text(), "a path reads as it is written");
}

constexpr struct {
    char letter;
    void (*read)(const Home& home, std::string_view text);
} readers[] = {{'p', readProfiles}, {'c', readCredentials}, {'e', readEndpoint}, {'r', readRemotePath}};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Home home;
    if (size == 0) return 0;
    for (const auto& reader : readers)
        if (reader.letter == static_cast<char>(data[0])) try {
                reader.read(home, tarnfuzz::textOf(data + 1, size - 1));
            } catch (const Failure&) {
            }
    return 0;
}
