#include "tests/cli/Shell.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace tarncli::test {

namespace fs = std::filesystem;

Shell::Shell()
{
    auto name = (fs::temp_directory_path() / "tarn-cli-test-XXXXXX").string();
    const char* programs = std::getenv("TARN_BIN_DIR");
    if (programs == nullptr || mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("TARN_BIN_DIR or mkdtemp");
    folder = name;
    fs::create_directories(home());
    fs::create_directories(work());
    environment = {{"HOME", home()}, {"PATH", std::string(programs) + ":/usr/bin:/bin"}, {"TZ", "UTC"}};
}

Shell::~Shell()
{
    try {
        if (fs::exists(home() / ".local/share/tarn/lock")) tarn({"local", "stop"});
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

std::vector<std::string> Shell::commandLine(const std::string& script,
                                            const std::vector<std::string>& arguments) const
{
    std::vector<std::string> line{"/usr/bin/env", "-i"};
    for (const auto& [name, value] : environment)
        line.push_back(name + "=" + value);
    line.insert(line.end(), {"sh", "-c", "cd '" + work().string() + "' && " + script, "sh"});
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

CommandResult Shell::run(const std::string& script, const std::vector<std::string>& arguments) const
{
    return tarnd::test::runCommand(commandLine(script, arguments), std::chrono::seconds(120));
}

CommandResult Shell::tarn(const std::vector<std::string>& arguments) const
{
    return run("exec tarn \"$@\" </dev/null", arguments);
}

std::string Shell::logIn(tarnd::test::TarndProcess& service, const std::string& user)
{
    const auto token = service.addUser(user);
    set("TARN_ENDPOINT", service.url());
    const auto result = run("printf %s \"$2\" | tarn login \"$1\"", {user, token});
    if (result.exitCode != 0) throw std::runtime_error("login: " + result.err);
    return token;
}

void Shell::write(const fs::path& belowWork, const std::string& content) const
{
    fs::create_directories((work() / belowWork).parent_path());
    std::ofstream(work() / belowWork, std::ios::binary) << content;
}

std::string Shell::read(const fs::path& belowWork) const
{
    std::ifstream file(work() / belowWork, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::map<std::string, std::string> contentsOf(const fs::path& root)
{
    std::map<std::string, std::string> result;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const auto name = fs::relative(entry.path(), root).string();
        std::ifstream file(entry.path(), std::ios::binary);
        if (entry.is_directory())
            result[name + "/"];
        else
            result[name].assign(std::istreambuf_iterator<char>(file), {});
    }
    return result;
}

} // namespace tarncli::test
