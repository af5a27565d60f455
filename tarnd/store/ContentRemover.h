#pragma once

#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tarnd {

/// Removes files in the background, so that a reply does not wait for them: 40,000 take a slow disk half a
/// minute; nothing goes while a copy of the store is made. What a crash leaves is found by the next start. All calls may run on any thread.
class ContentRemover {
public:
    explicit ContentRemover(std::filesystem::path dataDir) : dataDir(std::move(dataDir)) {}

    /// Removes what is still waiting: a store that was closed in order has no contents without a row, unless it was
    /// being copied.
    ~ContentRemover();

    void add(std::vector<std::filesystem::path> files);

    /// Blocks until all that was added is gone.
    void finish();

private:
    void run();
    void remove(const std::vector<std::filesystem::path>& files);
    bool isEnding();

    const std::filesystem::path dataDir;
    std::mutex mutex; ///< guards all below
    std::condition_variable changed;
    std::vector<std::filesystem::path> waiting;
    bool removing = false;
    bool ending = false;
    std::thread thread; ///< started by the first file
};

} // namespace tarnd
