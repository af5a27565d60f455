#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnd::test {

/// A reply document as a tree of its elements.
struct XmlElement {
    std::string name;
    std::string text; ///< of this element and all below it
    std::vector<XmlElement> children;

    /// All elements of that name below this one, in document order.
    std::vector<const XmlElement*> all(std::string_view wanted) const&;
    void all(std::string_view wanted) const&& = delete; // they would dangle

    /// The only element of that name among the children. @throws std::runtime_error
    const XmlElement& child(std::string_view wanted) const;

    /// The text of the only element of that name below this one. @throws std::runtime_error
    std::string only(std::string_view wanted) const;
};

/// @throws std::runtime_error, with the document, when it is not well-formed XML
XmlElement parseXml(const std::string& document);

} // namespace tarnd::test
