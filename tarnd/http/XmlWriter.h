#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarnd {

/// Builds one compact XML document in UTF-8: no white space between elements, because the readers of the
/// replies count every child node.
///
/// Text is escaped. Characters that XML 1.0 cannot carry at all (controls, U+FFFE, U+FFFF) and bytes that are
/// not UTF-8 become U+FFFD, so that one odd name never makes a whole reply unreadable.
class XmlWriter {
public:
    /// Opens the document with its root element.
    explicit XmlWriter(std::string_view root);

    /// Writes `<name>` … `</name>` around what `content` writes.
    template <std::invocable F>
    void element(std::string_view name, F&& content)
    {
        open(name);
        content();
        close(name);
    }

    void text(std::string_view name, std::string_view value);
    void number(std::string_view name, std::int64_t value);
    void number(std::string_view name, std::uint64_t value);
    /// "true" or "false".
    void boolean(std::string_view name, bool value);

    /// Closes the root and hands the document out. @pre called once, last
    std::string finish();

private:
    /// @pre nothing in `value` has to be escaped
    void plain(std::string_view name, std::string_view value);
    void open(std::string_view name);
    void close(std::string_view name);

    std::string document;
    std::string root;
};

} // namespace tarnd
