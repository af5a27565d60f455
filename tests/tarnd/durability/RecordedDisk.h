#pragma once

#include "tests/tarnd/durability/FaultPlan.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace tarnd::test {

/// A recorded call with the data it wrote.
struct RecordedCall : FileCall {
    std::string_view data;
};

/// What Faults::recordTo recorded: calls that point into `bytes`.
std::vector<RecordedCall> recordedCalls(const std::string& bytes);

/// A folder as recorded calls left it, of which only what was synced is certain: the bytes of a file after a
/// sync of the file, the names in a folder after a sync of the folder. Whatever came later may be on the disk
/// or not, each write, size and name by itself.
class RecordedDisk {
public:
    /// @param root of the recorded paths
    explicit RecordedDisk(const std::filesystem::path& root) : root(root.string()) {}

    /// Takes in the next call, which outlives this.
    void follow(const RecordedCall& call);

    /// How much survives of each of so many changes that are not certain: 0 nothing, 0.5 half of a write, 1 all.
    using Luck = std::function<std::vector<double>(std::size_t)>;

    /// Writes what a power loss leaves now into a folder that does not exist.
    void leave(const std::filesystem::path& folder, const Luck& survives) const;

private:
    struct File {
        bool isFolder;
        std::string bytes = {};                        ///< certain
        std::vector<const RecordedCall*> changes = {}; ///< not certain
    };

    using Names = std::map<std::string, std::shared_ptr<File>>; ///< by path; null: nothing of that name

    void name(const std::string& path, std::shared_ptr<File> file, const std::string& gone = {});
    void makeCertain(const std::string& path);

    std::string root;
    Names seen;                 ///< by the running program
    Names certain;              ///< on the disk
    std::vector<Names> namings; ///< not certain; each happens at once
};

} // namespace tarnd::test
