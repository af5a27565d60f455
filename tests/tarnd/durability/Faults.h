#pragma once

#include "tests/tarnd/durability/FaultPlan.h"

#include <filesystem>
#include <new>
#include <stdexcept>
#include <sys/mman.h>

namespace tarnd::test {

/// While it lives, every program that the test starts has its calls on files below `root` under its control.
class Faults {
public:
    explicit Faults(const std::filesystem::path& root)
    {
        auto file = (std::filesystem::temp_directory_path() / "tarnd-faults-XXXXXX").string();
        const int fd = ::mkstemp(file.data());
        if (fd < 0 || ::ftruncate(fd, sizeof(FaultPlan)) != 0)
            throw std::runtime_error("no file for the faults");
        plan =
            new (::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)) FaultPlan{};
        ::close(fd);
        root.string().copy(plan->root.data(), plan->root.size() - 1);
        ::setenv(FaultPlan::variable, file.c_str(), 1);
        ::setenv("LD_PRELOAD", FILE_FAULTS, 1);
        ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 0); // its library need not be loaded first
    }

    ~Faults()
    {
        std::filesystem::remove(std::getenv(FaultPlan::variable));
        ::unsetenv(FaultPlan::variable);
        ::unsetenv("LD_PRELOAD");
        ::munmap(plan, sizeof(FaultPlan));
    }

    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    /// The `at`-th call from now on is struck. @param error of Action::fail
    void strike(int at, FaultPlan::Action action, int error = 0, bool lasting = false)
    {
        plan->action = action;
        plan->error = error;
        plan->lasting = lasting;
        plan->struck = false;
        plan->calls = 0;
        plan->at = at;
    }

    /// From now on no call is struck.
    void heal() { plan->at = 0; }

    bool hasStruck() const { return plan->struck; }

    /// Records all calls from now on, in one order.
    void recordTo(const std::filesystem::path& journal)
    {
        journal.string().copy(plan->journal.data(), plan->journal.size() - 1);
    }

    /// Puts a mark among the recorded calls.
    void mark(std::size_t number)
    {
        while (plan->recording.exchange(true))
            ;
        plan->record({FileCall::Kind::mark, {}, number});
        plan->recording = false;
    }

private:
    FaultPlan* plan;
};

} // namespace tarnd::test
