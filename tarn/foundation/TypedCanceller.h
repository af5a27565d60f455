#pragma once

#include "tarn/foundation/platform/ReactiveStreams.h"

#include <utility>

namespace connector::reactive_streams {

/// Cancels the subscriber it holds, when told to or when destroyed.
/// @tparam SubscriberPtr  a shared_ptr to a subscriber
template <class SubscriberPtr>
class TypedCanceller : public Canceller {
public:
    explicit TypedCanceller(SubscriberPtr held) : subscriber(std::move(held)) {}

    TypedCanceller(const TypedCanceller&) = delete;
    TypedCanceller& operator=(const TypedCanceller&) = delete;

    ~TypedCanceller() override { subscriber->cancel(); }

    void cancel() override { subscriber->cancel(); }

private:
    SubscriberPtr subscriber;
};

} // namespace connector::reactive_streams
