#pragma once

#include <string>
#include <vector>

namespace tarnd {

/// Files that somebody else writes, such as certificates, looked at from time to time. Names that are empty are left
/// out, and one whose file is gone for a while is waited for. A name may be a link that is turned to another file, as
/// certbot does: what counts is what it leads to, which no notice of the kernel follows.
class SettingsWatch {
public:
    explicit SettingsWatch(std::vector<std::string> names);

    /// True once for a change, at the look after the one that found it: a certificate and its key are not written in
    /// the same moment.
    bool haveChanged();

    /// As they are now they are known.
    void acknowledge();

private:
    /// File, size and time of the last change of each.
    using Stamps = std::vector<std::string>;
    Stamps look() const;

    std::vector<std::string> names;
    Stamps known;
    Stamps lastLook;
};

} // namespace tarnd
