#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"

#include <string>
#include <variant>
#include <vector>

namespace tarnd {

/// As administrators see it.
struct PublicLink {
    std::string id; ///< names it and does not open it
    std::string user;
    std::string path;
};

/// Links that open an item for anybody who has them: 192 random bits as hex, one per item, stable for its
/// life and across moves, gone with the item. None of a disabled user opens. All calls block and may run on any thread.
class PublicLinks {
public:
    explicit PublicLinks(Engine engine) : engine(std::move(engine)) {}

    /// The link token of the item, made at the first call.
    /// @throws ServiceError notFound, notAllowed for a reader of the item (only the owner shares)
    std::string get(const Caller& caller, const Location& location);

    /// All there are, by user.
    std::vector<PublicLink> list();

    /// Ends a link; the item gets another one when its owner asks again. @throws ServiceError badRequest
    void revoke(const std::string& id);

    /// What the link, or `below` inside the linked folder, shows: a file's content or a folder's listing. Nothing
    /// in it is writable. @throws ServiceError notFound for an unknown token and for a path that is not there
    std::variant<OpenContent, Listing> open(const std::string& token, const ItemPath& below = {});

private:
    Engine engine;
};

} // namespace tarnd
