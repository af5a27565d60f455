#include "tarn/protocol/detail/PlainReply.h"

#include "tarn/protocol/detail/PlainText.h"
#include "tarn/protocol/detail/ThreadNames.h"

#include <Poco/DOM/DOMBuilder.h>
#include <Poco/SAX/AttributesImpl.h>
#include <Poco/SAX/XMLFilterImpl.h>

#include <string>

namespace connector::tarn::detail {
namespace {

/// Gives a plain text to the builder of a DOM.
class PlainReader final : public Poco::XML::XMLFilterImpl, private PlainEvents {
public:
    PlainReader(ThreadNames& threadNames, const ReplyLimits& replyLimits)
        : names(threadNames), limits(replyLimits)
    {
    }

    /// Whether all of the text was plain.
    bool isPlain() const { return plain; }

    /// There are no namespaces to look for,
    bool getFeature(const std::string&) const override { return false; }

    /// nothing is set up by a text,
    void setProperty(const std::string&, const std::string&) override {}

    /// and the handler of what is not plain would never be called.
    void setProperty(const std::string&, void*) override {}

    void parseMemoryNP(const char* text, std::size_t size) override
    {
        startDocument();
        plain = readPlain({text, size}, limits, *this);
        endDocument();
    }

private:
    bool onStart(std::string_view name) override
    {
        const auto* known = names.find(name, limits);
        if (known) startElement(empty, empty, *known, noAttributes);
        return known;
    }

    bool onEnd() override
    {
        endElement(empty, empty, empty);
        return true;
    }

    bool onText(std::string_view piece) override
    {
        characters(piece.data(), 0, static_cast<int>(piece.size())); // the builder joins pieces that touch
        return true;
    }

    ThreadNames& names;
    const ReplyLimits& limits;
    const std::string empty;
    const Poco::XML::AttributesImpl noAttributes;
    bool plain = false;
};

} // namespace

Poco::AutoPtr<Poco::XML::Document> plainDocument(std::string_view text, const ReplyLimits& limits)
{
    constexpr std::size_t usualNames = 50;
    auto& names = ThreadNames::ofThisThread();
    PlainReader reader(names, limits);
    Poco::XML::DOMBuilder builder(reader, names.poolFor(usualNames));
    Poco::AutoPtr<Poco::XML::Document> document(builder.parseMemoryNP(text.data(), text.size()));
    return reader.isPlain() ? document : nullptr;
}

} // namespace connector::tarn::detail
