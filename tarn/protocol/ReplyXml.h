#pragma once

#include "tarn/foundation/Export.h"
#include "tarn/protocol/ReplyLimits.h"

#include <Poco/AutoPtr.h>
#include <Poco/DOM/Document.h>
#include <Poco/DOM/Element.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Reading of XML replies. Every lookup is linear in the size of what it searches.
namespace connector::tarn {

using ReplyDocument = Poco::AutoPtr<Poco::XML::Document>;

/// The document in `text`, as Poco's DOM parser reads it with its default settings; to be released on this thread.
/// Elements are told apart by `nodeName()`: where a reply has neither attributes nor namespaces, `localName()` is empty.
/// @throws TarnError "TARN error: " followed by the whole text, of which no more than `limits.bytes`, when
///         it is not well-formed XML or passes a limit
TARN_API ReplyDocument parseXml(std::string_view text, const ReplyLimits& limits = {});

/// The text below the single descendant of `node` named `tag`, at any depth; nothing when there is none or
/// more than one. The search stops at the second.
TARN_API std::optional<std::string> onlyText(const Poco::XML::Node& node, const std::string& tag);

/// An element that was looked for, and whether it was met more than once.
struct Only {
    const Poco::XML::Element* element = nullptr;
    bool ambiguous = false;

    /// As `onlyText`.
    TARN_API std::optional<std::string> text() const;
};

/// What `onlyText` would find for each of `tags`, in one walk. @pre `found` is as long as `tags`
TARN_API void findOnly(const Poco::XML::Node& node, std::span<const std::string_view> tags,
                       std::span<Only> found);

/// `onlyText` below an element; `fallback` also when `node` is not an element.
TARN_API std::string childText(const Poco::XML::Node& node, const std::string& tag,
                               const std::string& fallback = {});

/// `onlyText` in the whole document, its root element included.
TARN_API std::string documentText(const Poco::XML::Document& document, const std::string& tag,
                                  const std::string& fallback = {});

/// All descendants of `node` named `tag`, at any depth, in document order.
TARN_API std::vector<const Poco::XML::Element*> elementsNamed(const Poco::XML::Node& node,
                                                              const std::string& tag);

/// The direct children of `container` that are elements, in document order; none for a null container. The
/// text between the items of a pretty-printed reply is not an item.
TARN_API std::vector<const Poco::XML::Element*> childElements(const Poco::XML::Element* container);

} // namespace connector::tarn
