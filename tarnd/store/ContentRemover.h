#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tarnd {

/// Removes contents in the background, so that a reply does not wait for them: 40,000 take a slow disk half a
/// minute. What a crash leaves, or nobody had a thread for, is found by the next comparison of rows and contents. All calls may run on any thread.
class ContentRemover {
public:
    /// False: to be tried again, unless it was the last try.
    using Remove = std::function<bool(const std::vector<std::string>& names, bool lastTry)>;

    /// @param remove  called on a thread of its own, on one at a time
    explicit ContentRemover(Remove remove) : remove(std::move(remove)) {}

    /// Removes what is still waiting, with one last try.
    ~ContentRemover();

    void add(std::vector<std::string> names);

    /// Blocks until all that was added is gone, as far as there is a thread for it.
    void finish();

private:
    void makeThread();
    void run();
    bool isEnding();

    const Remove remove;
    std::mutex mutex; ///< guards all below
    std::condition_variable changed;
    std::vector<std::string> waiting;
    bool removing = false;
    bool ending = false;
    std::thread thread; ///< started by the first name
};

} // namespace tarnd
