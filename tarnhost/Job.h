#pragma once

#include <memory>
#include <utility>

namespace connector::host {

/// Something to call later, once. Unlike std::function it takes what can only be moved.
class Job {
public:
    /// Holds nothing; must not be called.
    Job() = default;

    template <class F>
    explicit Job(F callable) : held(std::make_unique<Holder<F>>(std::move(callable)))
    {
    }

    explicit operator bool() const { return held != nullptr; }

    void operator()() { held->run(); }

private:
    struct Callable {
        virtual ~Callable() = default;
        virtual void run() = 0;
    };

    template <class F>
    struct Holder : Callable {
        explicit Holder(F given) : callable(std::move(given)) {}

        void run() override { callable(); }

        F callable;
    };

    std::unique_ptr<Callable> held;
};

} // namespace connector::host
