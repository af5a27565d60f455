#include "tarn/protocol/ReplyXml.h"

#include "tarn/protocol/ErrorText.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/protocol/detail/PlainReply.h"
#include "tarn/protocol/detail/ReplyInspection.h"
#include "tarn/protocol/detail/ThreadNames.h"

#include <Poco/DOM/DOMParser.h>

#include <limits>

namespace connector::tarn {
namespace {

using Poco::XML::Element;
using Poco::XML::Node;

/// The node after `node` in document order below `root`, or null at the end.
const Node* following(const Node* node, const Node& root)
{
    if (const Node* child = node->firstChild()) return child;
    while (node != &root) {
        if (const Node* sibling = node->nextSibling()) return sibling;
        node = node->parentNode();
    }
    return nullptr;
}

/// The first element named `tag` after `node` in document order below `root`, or null.
const Element* nextNamed(const Node* node, const Node& root, const std::string& tag)
{
    // Not getElementsByTagName: a NodeList walks the document anew for every item.
    while ((node = following(node, root))) {
        if (node->nodeType() == Node::ELEMENT_NODE && node->nodeName() == tag) {
            return static_cast<const Element*>(node);
        }
    }
    return nullptr;
}

/// The document in `text`, or null when it passes a limit or is not well-formed.
ReplyDocument readWithin(const ReplyLimits& limits, std::string_view text)
{
    // Parsers take an int for the length.
    if (text.size() > limits.bytes || text.size() > std::numeric_limits<int>::max()) return nullptr;
    if (auto document = detail::plainDocument(text, limits)) return document;
    const auto count = detail::namesIn(text, limits);
    if (!count) return nullptr;
    auto& names = detail::ThreadNames::ofThisThread();
    Poco::XML::DOMParser parser(names.poolFor(*count));
    names.take(*count);
    return ReplyDocument(parser.parseMemory(text.data(), text.size()));
}

} // namespace

ReplyDocument parseXml(std::string_view text, const ReplyLimits& limits)
{
    try {
        if (auto document = readWithin(limits, text)) return document;
    } catch (...) {
        // Whatever kept it from being read, the reply itself says most.
    }
    // A body beyond the limit would be held twice more: here and in the exception's own copy.
    throw TarnError(ErrorKind::unreadableReply,
                    ErrorText::notXmlPrefix + std::string(text.substr(0, limits.bytes)));
}

std::optional<std::string> onlyText(const Node& node, const std::string& tag)
{
    const Element* found = nextNamed(&node, node, tag);
    if (!found || nextNamed(found, node, tag)) return std::nullopt;
    return found->innerText();
}

std::optional<std::string> Only::text() const
{
    if (!element || ambiguous) return std::nullopt;
    return element->innerText();
}

void findOnly(const Node& node, std::span<const std::string_view> tags, std::span<Only> found)
{
    // One walk for all: a record of six fields would be walked six times. The limit on depth bounds the recursion.
    for (const Node* each = node.firstChild(); each; each = each->nextSibling()) {
        if (each->nodeType() != Node::ELEMENT_NODE) continue;
        const std::string& name = each->nodeName();
        for (std::size_t i = 0; i < tags.size(); ++i) {
            if (name != tags[i]) continue;
            if (found[i].element) found[i].ambiguous = true;
            found[i].element = static_cast<const Element*>(each);
        }
        findOnly(*each, tags, found);
    }
}

std::string childText(const Node& node, const std::string& tag, const std::string& fallback)
{
    if (node.nodeType() != Node::ELEMENT_NODE) return fallback;
    return onlyText(node, tag).value_or(fallback);
}

std::string documentText(const Poco::XML::Document& document, const std::string& tag,
                         const std::string& fallback)
{
    return onlyText(document, tag).value_or(fallback);
}

std::vector<const Element*> elementsNamed(const Node& node, const std::string& tag)
{
    std::vector<const Element*> found;
    for (auto* element = nextNamed(&node, node, tag); element; element = nextNamed(element, node, tag)) {
        found.push_back(element);
    }
    return found;
}

std::vector<const Element*> childElements(const Element* container)
{
    std::vector<const Element*> children;
    for (auto* node = container ? container->firstChild() : nullptr; node; node = node->nextSibling()) {
        if (node->nodeType() == Node::ELEMENT_NODE) children.push_back(static_cast<const Element*>(node));
    }
    return children;
}

} // namespace connector::tarn
