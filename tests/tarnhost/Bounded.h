#pragma once

#include "tarn/foundation/Future.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace connector::host::test {

inline constexpr std::chrono::seconds patience{20};

/// The future's value; a test that would hang fails instead.
template <class T>
T bounded(Future<T> future)
{
    if (!future.waitFor(patience)) throw std::logic_error("nothing arrived within 20 seconds");
    return future.get();
}

/// The text of the Error that the future fails with.
template <class Error, class T>
std::string failureOf(Future<T> future)
{
    try {
        bounded(std::move(future));
    } catch (const Error& error) {
        return error.what();
    } catch (const std::exception& other) {
        return std::string("wrong type of error: ") + other.what();
    }
    return "no error";
}

/// Waits for what another thread is about to do. @return whether it came to pass in time
template <class Condition>
bool eventually(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    bool came = condition();
    while (!came && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        came = condition();
    }
    return came;
}

} // namespace connector::host::test
