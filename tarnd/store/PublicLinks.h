#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace tarnd {

struct PublicLink {
    std::string id; ///< names it and does not open it
    std::string user;
    std::string path;
    ItemKind kind = ItemKind::file;
    std::int64_t expires = 0; ///< milliseconds since 1970, UTC; 0: it does not end
    std::string token;        ///< opens it
};

/// Links that open an item for anybody who has them: 192 random bits as hex, stable across moves of the item, gone
/// with it. An item has one that does not end, and one for each moment at which a link is to end; one that has ended
/// is as one that never was. None of a disabled user opens. All calls block and may run on any thread.
class PublicLinks {
public:
    explicit PublicLinks(Engine engine) : engine(std::move(engine)) {}

    /// The token of the item's link that ends at `expires`, made at the first call.
    /// @param expires  milliseconds since 1970, UTC; 0: never
    /// @throws ServiceError notFound, notAllowed for a reader of the item (only the owner shares), badRequest for a
    /// moment that has passed
    std::string get(const Caller& caller, const Location& location, std::int64_t expires = 0);

    /// All that have not ended, by user.
    std::vector<PublicLink> list();

    /// Those of the caller's items.
    std::vector<PublicLink> list(const Caller& caller);

    /// Ends a link; the item gets another one when its owner asks again. @throws ServiceError badRequest
    void revoke(const std::string& id);

    /// The same for a link of the caller's; those of others are unknown.
    void revoke(const Caller& caller, const std::string& id);

    /// Names the link of a token.
    static std::string idOf(const std::string& token);

    /// What the link, or `below` inside the linked folder, shows: a file's content or a folder's listing. Nothing
    /// in it is writable. @throws ServiceError notFound for an unknown token and for a path that is not there
    std::variant<OpenContent, Listing> open(const std::string& token, const ItemPath& below = {});

private:
    Engine engine;
};

} // namespace tarnd
