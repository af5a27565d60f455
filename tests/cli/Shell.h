#pragma once

#include "tests/support/TarndProcess.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tarncli::test {

using tarnd::test::CommandResult;

/// A user at a shell: a home folder of its own, the programs under test first on PATH, nothing of the
/// environment of the tests. Ends the local store and removes everything in the end.
class Shell {
public:
    Shell();
    ~Shell();
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    void set(const std::string& name, const std::string& value) { environment[name] = value; }

    /// Runs `tarn ARGUMENTS…` in the folder `work()`.
    CommandResult tarn(const std::vector<std::string>& arguments) const;

    /// Runs a script with $1, $2, … = `arguments`.
    CommandResult run(const std::string& script, const std::vector<std::string>& arguments = {}) const;

    /// The command line that `run` executes, for tests that start it themselves.
    std::vector<std::string> commandLine(const std::string& script,
                                         const std::vector<std::string>& arguments = {}) const;

    /// Makes `service` the endpoint and logs in. @return the token
    std::string logIn(tarnd::test::TarndProcess& service, const std::string& user);

    /// Where local files are.
    std::filesystem::path work() const { return folder / "work"; }

    std::filesystem::path home() const { return folder / "home"; }

    std::filesystem::path stateFolder() const { return home() / ".local/state/tarn"; }

    void write(const std::filesystem::path& belowWork, const std::string& content) const;
    std::string read(const std::filesystem::path& belowWork) const;

private:
    std::filesystem::path folder;
    std::map<std::string, std::string> environment;
};

/// Every path below `root` with its content; folders end with '/'.
std::map<std::string, std::string> contentsOf(const std::filesystem::path& root);

} // namespace tarncli::test
