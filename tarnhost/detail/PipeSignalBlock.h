#pragma once

namespace connector::host::detail {

/// While it lives, what this thread writes to a connection that its peer has closed fails and does not signal: TLS
/// writes without MSG_NOSIGNAL, so that SIGPIPE would end the process.
class PipeSignalBlock {
public:
    PipeSignalBlock();
    ~PipeSignalBlock();
    PipeSignalBlock(const PipeSignalBlock&) = delete;
    PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;

private:
    bool wasBlocked;
};

} // namespace connector::host::detail
