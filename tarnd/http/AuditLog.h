#pragma once

#include "tarnd/http/Call.h"
#include "tarnd/http/LogFile.h"

#include <optional>
#include <string>
#include <string_view>

namespace tarnd {

/// Who logged in, shared, linked, moved and removed what, or tried to: one JSON object per line, kept apart from the
/// log of requests, since it is kept for longer and read by others. Holds no token, no session id and no public
/// link. Callable from any thread.
class AuditLog {
public:
    /// @param path  empty: nothing is kept
    explicit AuditLog(const std::string& path)
    {
        if (!path.empty()) file.emplace(path);
    }

    bool isOn() const { return file.has_value(); }

    /// @param event  what the route calls it
    void add(std::string_view event, const std::string& requestId, const Call& call, unsigned status);

    void reopen()
    {
        if (file) file->reopen();
    }

private:
    std::optional<LogFile> file;
};

} // namespace tarnd
