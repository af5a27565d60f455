#include "tarnd/http/Exchange.h"

#include "tarnd/http/PublicPages.h"
#include "tarnd/http/Sentences.h"
#include "tarnd/store/Sentences.h"

#include <utility>

namespace tarnd {

namespace {

constexpr std::uint64_t strayBodyLimit = 64 * 1024; // bytes that a request without content may carry

/// A client that sends its body unasked reads no reply before it is through, and a connection closed under it
/// may lose the reply. So a body that nobody wants is read and dropped, up to here.
constexpr std::uint64_t dropLimit = 256 * 1024;

void refuseUnfitLength(const Route& route, const Request& request, std::uint64_t maxFileSize)
{
    const auto length = request.contentLength();
    if (route.begin != nullptr && !length && !request.isChunked()) throw sentences::lengthRequired();
    if (route.begin != nullptr && length.value_or(0) > maxFileSize) throw sentences::fileTooLarge();
    if (route.begin == nullptr && length.value_or(0) > strayBodyLimit) throw sentences::bodyTooLarge();
}

} // namespace

Exchange::Exchange(Site& theSite, ClientAddress theClient, std::string theTarget)
    : site(theSite), client(theClient), target(std::move(theTarget))
{
}

template <class F>
void Exchange::guarded(F&& step)
{
    try {
        step();
    } catch (const ServiceError& error) {
        fail(error);
    } catch (const std::exception& error) {
        fail(sentences::internal.because(error.what()));
    }
}

void Exchange::fail(const ServiceError& error)
{
    if (error.kind() == ServiceError::Kind::internal || !error.detail().empty())
        site.log.failed(methodName, target, error);
    const bool forPeople = taken != nullptr && taken->access == Access::anybody;
    refusal = forPeople ? publicErrorPage(error) : errorReply(error);
    if (call) call->upload.reset();
}

void Exchange::route(RequestHead head)
{
    if (head.targetSize != target.size()) throw sentences::badTarget();
    requireHost(head);
    request.emplace(head.method, target, std::move(head.headers));
    taken = &routeOf(*request);
    call.emplace(Call{site.store, site.publicUrl, *request, tailOf(*taken, *request), {}, {}});
    if (taken->access == Access::token) site.failedLogins.check(client);
    if (taken->access == Access::session)
        call->caller = site.store.sessions().touch(request->header("x-qz-tarn-session-id"));
    refuseUnfitLength(*taken, *request, site.maxFileSize);
    if (taken->begin != nullptr) taken->begin(*call);
}

Exchange::Body Exchange::begin(RequestHead head)
{
    begun = true;
    methodName = head.method;
    const bool bodyHeldBack = waitsForContinue(head.headers);
    guarded([&] { route(std::move(head)); });
    if (!refusal) return Body::wanted;
    // Where the end of the body is in doubt there is nothing to wait for.
    if (bodyHeldBack || !request) return Body::ignored;
    return request->contentLength().value_or(0) > dropLimit ? Body::endless : Body::refused;
}

bool Exchange::receive(const char* data, std::size_t size)
{
    received += size;
    if (refusal) return received - receivedBeforeRefusal <= dropLimit;
    guarded([&] {
        if (call->upload && received > site.maxFileSize) throw sentences::fileTooLarge();
        if (call->upload)
            call->upload->write(data, size);
        else if (received > strayBodyLimit)
            throw sentences::bodyTooLarge();
    });
    if (refusal) receivedBeforeRefusal = received;
    return true;
}

Reply Exchange::finish()
{
    Reply reply;
    if (!refusal) guarded([&] { reply = taken->handle(*call); });
    if (refusal) reply = std::move(*refusal);
    const bool isLogin = taken != nullptr && taken->access == Access::token;
    if (isLogin && reply.status == 401) try {
            heldBack = site.failedLogins.add(client);
        } catch (const ServiceError& tooMany) {
            reply = errorReply(tooMany);
        }
    site.log.answered(methodName, target, reply.status, std::chrono::steady_clock::now() - started);
    return reply;
}

std::chrono::milliseconds Exchange::delay() const
{
    return heldBack ? FailedLogins::delay : std::chrono::milliseconds(0);
}

} // namespace tarnd
