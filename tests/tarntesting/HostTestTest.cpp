// Our own host does what is asked of any.
#include "tarntesting/HostTest.h"
#include "tarnhost/TarnHost.h"

namespace {

using namespace connector;

struct TarnHostUnderTest : tarntesting::HostUnderTest {
    std::shared_ptr<Connector> connector() override { return host.connector(); }

    Address http() override { return host::TarnHost::Addresses::http(); }

    void serve(const Address& address, std::shared_ptr<ServiceProvider> provider) override
    {
        host.registerProvider(address, std::move(provider));
    }

    host::TarnHost host{{.endpoint = "http://127.0.0.1"}};
};

} // namespace

TARN_HOST_TEST([] { return std::make_unique<TarnHostUnderTest>(); })
