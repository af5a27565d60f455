#pragma once

#include <sys/types.h>

namespace tarnd::test {

/// A TCP proxy on loopback, in a process of its own, that can fall silent: connections stay, the kernel
/// acknowledges what it gets, nothing arrives. Make it before there are other threads.
class SilentProxy {
public:
    explicit SilentProxy(int targetPort);
    ~SilentProxy();

    int port() const { return ownPort; }

    void setSilent(bool silent);

private:
    int ownPort = 0;
    pid_t pid = -1;
};

} // namespace tarnd::test
