#include "tarn/protocol/ReplyXml.h"

#include "tarn/protocol/ErrorText.h"
#include "tarn/protocol/detail/ReplyFilter.h"

#include <Poco/DOM/DOMBuilder.h>
#include <Poco/SAX/SAXParser.h>

#include <stdexcept>

namespace connector::tarn {
namespace {

using Poco::XML::Element;
using Poco::XML::Node;
using Poco::XML::SAXParser;
using Poco::XML::XMLReader;

/// The document, or null when it passed a limit.
ReplyDocument build(const std::string& text, const ReplyLimits& limits)
{
    SAXParser parser; // with the features of Poco's DOMParser
    parser.setFeature(XMLReader::FEATURE_NAMESPACES, true);
    parser.setFeature(XMLReader::FEATURE_NAMESPACE_PREFIXES, true);
    detail::ReplyFilter filter(&parser, limits);
    Poco::XML::DOMBuilder builder(filter);
    ReplyDocument document(builder.parseMemoryNP(text.data(), text.size()));
    return filter.limitPassed() ? ReplyDocument() : document;
}

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
    while ((node = following(node, root))) {
        if (node->nodeType() == Node::ELEMENT_NODE && node->nodeName() == tag) {
            return static_cast<const Element*>(node);
        }
    }
    return nullptr;
}

} // namespace

ReplyDocument parseXml(const std::string& text, const ReplyLimits& limits)
{
    try {
        if (auto document = build(text, limits)) return document;
    } catch (...) {
    }
    throw std::runtime_error(ErrorText::notXmlPrefix + text);
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
