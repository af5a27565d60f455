#include "tarn/protocol/ReplyXml.h"

#include "tarn/protocol/ErrorText.h"
#include "tarn/protocol/detail/ReplyInspection.h"

#include <Poco/DOM/DOMParser.h>

#include <stdexcept>

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

} // namespace

ReplyDocument parseXml(std::string_view text, const ReplyLimits& limits)
{
    try {
        if (detail::isAcceptable(text, limits)) {
            return ReplyDocument(Poco::XML::DOMParser().parseMemory(text.data(), text.size()));
        }
    } catch (...) {
        // Whatever kept it from being read, the reply itself says most.
    }
    // A body beyond the limit would be held twice more: here and in the exception's own copy.
    throw std::runtime_error(ErrorText::notXmlPrefix + std::string(text.substr(0, limits.bytes)));
}

std::optional<std::string> onlyText(const Node& node, const std::string& tag)
{
    const Element* found = nextNamed(&node, node, tag);
    if (!found || nextNamed(found, node, tag)) return std::nullopt;
    return found->innerText();
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
