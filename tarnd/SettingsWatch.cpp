#include "tarnd/SettingsWatch.h"

#include <sys/stat.h>
#include <utility>

namespace tarnd {

namespace {

/// Empty for a file that is not there.
std::string stampOf(const std::string& name)
{
    struct stat file {};

    if (stat(name.c_str(), &file) != 0) return {};
    std::string stamp;
    for (const auto part : {static_cast<long long>(file.st_dev), static_cast<long long>(file.st_ino),
                            static_cast<long long>(file.st_size), static_cast<long long>(file.st_mtim.tv_sec),
                            static_cast<long long>(file.st_mtim.tv_nsec)})
        stamp += std::to_string(part) + ' ';
    return stamp;
}

} // namespace

SettingsWatch::SettingsWatch(std::vector<std::string> names) : names(std::move(names))
{
    std::erase(this->names, "");
    acknowledge();
}

SettingsWatch::Stamps SettingsWatch::look() const
{
    Stamps stamps;
    for (const auto& name : names)
        stamps.push_back(stampOf(name));
    return stamps;
}

void SettingsWatch::acknowledge()
{
    known = lastLook = look();
}

bool SettingsWatch::haveChanged()
{
    const auto before = std::exchange(lastLook, look());
    // What is not there is about to be written.
    for (const auto& stamp : lastLook)
        if (stamp.empty()) return false;
    if (lastLook == known || lastLook != before) return false;
    known = lastLook;
    return true;
}

} // namespace tarnd
