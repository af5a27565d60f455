#pragma once

#include "cli/remote/ContentReceiver.h"
#include "cli/remote/ContentTarget.h"

#include <memory>
#include <string>
#include <utility>

namespace tarncli {

/// Keeps a content, which may come anew as often as it has to.
class ContentInMemory : public ContentTarget, public std::enable_shared_from_this<ContentInMemory> {
public:
    /// Of the content, to have room for it at once.
    void expect(std::uint64_t size) { content.reserve(size); }

    std::string take() { return std::move(content); }

    std::uint64_t held() const override { return content.size(); }

    std::shared_ptr<connector::tarn::Sha256> hash() override { return digest; }

    std::string version() const override { return versionId; }

    void setVersion(const std::string& id) override { versionId = id; }

    void startOver(const std::string&) override
    {
        content.clear();
        *digest = {};
    }

    connector::tarn::ContentSubscriber subscriber() override
    {
        return std::make_shared<ContentReceiver>([self = shared_from_this()](std::string_view bytes) {
            self->requireRoomTo(self->held() + bytes.size());
            self->content += bytes;
        });
    }

private:
    std::string content;
    const std::shared_ptr<connector::tarn::Sha256> digest = std::make_shared<connector::tarn::Sha256>();
    std::string versionId;
};

} // namespace tarncli
