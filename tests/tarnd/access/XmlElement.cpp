#include "tests/tarnd/access/XmlElement.h"

#include <Poco/AutoPtr.h>
#include <Poco/DOM/DOMParser.h>
#include <Poco/DOM/Document.h>
#include <Poco/DOM/Element.h>
#include <Poco/Exception.h>
#include <stdexcept>

namespace tarnd::test {

namespace {

XmlElement copyOf(const Poco::XML::Element& element)
{
    XmlElement copy{element.tagName(), element.innerText(), {}};
    for (const auto* node = element.firstChild(); node != nullptr; node = node->nextSibling())
        if (const auto* child = dynamic_cast<const Poco::XML::Element*>(node))
            copy.children.push_back(copyOf(*child));
    return copy;
}

const XmlElement& single(const std::vector<const XmlElement*>& found, const XmlElement& in,
                         std::string_view wanted)
{
    if (found.size() == 1) return *found.front();
    throw std::runtime_error(std::to_string(found.size()) + " elements " + std::string(wanted) + " in " +
                             in.name + ": " + in.text);
}

} // namespace

std::vector<const XmlElement*> XmlElement::all(std::string_view wanted) const&
{
    std::vector<const XmlElement*> found;
    for (const auto& each : children) {
        if (each.name == wanted) found.push_back(&each);
        const auto below = each.all(wanted);
        found.insert(found.end(), below.begin(), below.end());
    }
    return found;
}

const XmlElement& XmlElement::child(std::string_view wanted) const
{
    std::vector<const XmlElement*> found;
    for (const auto& each : children)
        if (each.name == wanted) found.push_back(&each);
    return single(found, *this, wanted);
}

std::string XmlElement::only(std::string_view wanted) const
{
    return single(all(wanted), *this, wanted).text;
}

XmlElement parseXml(const std::string& document)
{
    try {
        Poco::XML::DOMParser parser;
        const Poco::AutoPtr<Poco::XML::Document> parsed = parser.parseString(document);
        return copyOf(*parsed->documentElement());
    } catch (const Poco::Exception& e) {
        throw std::runtime_error(e.displayText() + " in: " + document);
    }
}

} // namespace tarnd::test
