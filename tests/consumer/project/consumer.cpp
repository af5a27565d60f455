// Asks a service that is not there, so that library, host and typed errors are all taken part in.
#include <tarn/protocol/TarnError.h>
#include <tarnhost/TarnHost.h>
#include <tarnhost/TransportError.h>

#include <iostream>

int main()
{
    connector::host::TarnHost host({.endpoint = "http://127.0.0.1:9"});
    try {
        host.session()->ping(std::make_unique<connector::tarn::Ping>()).get();
    } catch (const connector::host::TransportError& error) {
        std::cout << error.what() << '\n';
        return error.phase() == connector::host::TransportPhase::connect ? 0 : 1;
    }
    return 1;
}
