#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/Item.h"

#include <string>
#include <vector>

namespace tarnd {

struct SharedItem {
    Item item;
    std::string path; ///< decoded, inside `bucket`
    std::string bucket;
};

/// What one user shares with the caller.
struct SharedByUser {
    std::string user;
    std::vector<SharedItem> files;   ///< by path
    std::vector<SharedItem> folders; ///< by path
};

/// Lists the items granted to the caller themselves (not what lies below a granted folder), by sharing user.
/// Blocks; any thread.
class SharedContent {
public:
    explicit SharedContent(Engine engine) : engine(std::move(engine)) {}

    std::vector<SharedByUser> list(const Caller& caller);

private:
    Engine engine;
};

} // namespace tarnd
