#include "tarnd/http/Exchange.h"

#include "tarnd/http/PublicPages.h"
#include "tarnd/http/Sentences.h"
#include "tarnd/store/Sentences.h"

#include <array>
#include <cstdio>
#include <utility>

namespace tarnd {

namespace {

constexpr std::uint64_t strayBodyLimit = 64 * 1024; // bytes that a request without content may carry

/// A client that sends its body unasked reads no reply before it is through, and a connection closed under it
/// may lose the reply. So a body that nobody wants is read and dropped, up to here.
constexpr std::uint64_t dropLimit = 256 * 1024;

constexpr std::string_view sessionHeader = "x-qz-tarn-session-id";

void refuseUnfitLength(const Route& route, const Request& request, std::uint64_t maxFileSize)
{
    const auto length = request.contentLength();
    if (route.begin != nullptr && !length && !request.isChunked()) throw sentences::lengthRequired();
    if (route.begin != nullptr && length.value_or(0) > maxFileSize) throw sentences::fileTooLarge();
    if (route.begin == nullptr && length.value_or(0) > strayBodyLimit) throw sentences::bodyTooLarge();
}

/// A condition that nobody looks at would let through the very change that it is to prevent.
void refuseConditions(const Route& route, const Request& request)
{
    const auto refuse = [&](std::string_view header) {
        if (!request.headerValues(header).empty()) throw sentences::conditionalChange(header);
    };
    if (route.method != "PUT" && route.method != "DELETE") return;
    refuse("If-Unmodified-Since"); // times are too coarse to tell contents apart
    if (route.conditions == Conditions::onTags) return;
    refuse("If-Match");
    refuse("If-None-Match");
}

} // namespace

Exchange::Exchange(Site& theSite, Client theClient, std::string theTarget)
    : site(theSite)
    , client(std::move(theClient))
    , number(theSite.requests.fetch_add(1, std::memory_order_relaxed))
    , target(std::move(theTarget))
    , underWay(theSite.metrics.requests)
{
}

template <class F>
void Exchange::guarded(F&& step)
{
    try {
        try {
            step();
        } catch (const ServiceError& error) {
            requireSessionBefore(error);
            throw;
        }
    } catch (const ServiceError& error) {
        fail(error);
    } catch (const std::exception& error) {
        fail(sentences::internal.because(error.what()));
    }
}

/// Nobody is told anything of the request whose session has ended. What went wrong with the service itself goes to
/// everybody.
void Exchange::requireSessionBefore(const ServiceError& error)
{
    const bool isOfService =
        error.kind() == ServiceError::Kind::internal || error.kind() == ServiceError::Kind::unavailable;
    if (!isOfService) requireSession();
}

/// What has not asked for the session on its way does it now.
void Exchange::requireSession()
{
    if (!call || !call->caller.isAssumed) return;
    call->caller = {};
    call->caller = site.store.sessions().touch(request->header(sessionHeader));
}

void Exchange::fail(const ServiceError& error)
{
    if (error.kind() == ServiceError::Kind::internal || !error.detail().empty())
        site.log.failed(logged(false), error);
    const bool forPeople =
        taken != nullptr && (taken->access == Access::anybody || taken->access == Access::web);
    refusal = forPeople ? publicErrorPage(error) : errorReply(error);
    if (call) call->upload.reset();
    endTransfer();
}

/// Whoever watches must see most when others ask too much.
void Exchange::limitRequests()
{
    const bool watches = taken->access == Access::monitor || taken->access == Access::numbers;
    if (!watches && !site.rate.admit(client.address)) throw sentences::tooManyRequests();
}

/// Whoever asks for an item waits for the database once: the session is looked up with it. Not where a session that has
/// ended could use up what its user may do.
void Exchange::beginSession(const std::string& id)
{
    auto& sessions = site.store.sessions();
    const bool isCounted = site.userRate.isOn() || site.userTransfers.limit() != 0;
    const bool withItem = taken->access == Access::session && taken->tail == Tail::item && !isCounted;
    call->caller = withItem ? sessions.expect(id) : sessions.touch(id);
    if (!site.userRate.admit(static_cast<std::uint64_t>(call->caller.userId)))
        throw sentences::tooManyRequestsOfUser();
}

void Exchange::beginTransfer(Gauge& gauge)
{
    const auto user = static_cast<std::uint64_t>(call->caller.userId);
    addressTurn = site.addressTransfers.enter(client.address);
    if (!addressTurn) throw sentences::tooManyTransfers(std::to_string(site.addressTransfers.limit()));
    if (user != 0) userTurn = site.userTransfers.enter(user);
    if (user != 0 && !userTurn) throw sentences::tooManyTransfers(std::to_string(site.userTransfers.limit()));
    transfer.emplace(gauge);
}

void Exchange::endTransfer()
{
    transfer.reset();
    addressTurn.reset();
    userTurn.reset();
}

void Exchange::route(RequestHead head)
{
    if (head.targetSize != target.size()) throw sentences::badTarget();
    requireVersion(head);
    request.emplace(head.method, target, std::move(head.headers));
    const auto& found = routeOf(*request);
    if (found.access == Access::web && !site.web) throw sentences::unknownRoute();
    taken = &found;
    if (scripted && scripted->kind == Fault::Kind::refuse) throw sentences::toldToRefuse();
    call.emplace(Call{
        site.store, client, site.publicUrl, *request, tailOf(*taken, *request), {}, site.metrics, {}, {}});
    limitRequests();
    if (taken->access == Access::numbers) requireWatcher();
    if (taken->access == Access::token) site.failedLogins.check(client.address);
    if (taken->access == Access::session) beginSession(request->header(sessionHeader));
    refuseConditions(*taken, *request);
    refuseUnfitLength(*taken, *request, site.maxFileSize);
    if (taken->begin == nullptr) return;
    beginTransfer(site.metrics.uploads);
    taken->begin(*call);
}

/// A proxy on this machine asks for others, and says so.
void Exchange::requireWatcher() const
{
    if (site.numbersFor == NumbersFor::anybody) return;
    if (site.numbersFor == NumbersFor::nobody) throw sentences::unknownRoute();
    for (const auto* header : {"Forwarded", "X-Forwarded-For", "Via"})
        if (!request->headerValues(header).empty()) throw sentences::numbersAreLocal();
    if (!client.isLocal()) throw sentences::numbersAreLocal();
}

Exchange::Body Exchange::begin(RequestHead head)
{
    begun = true;
    methodName = head.method;
    if (const auto script = site.faults.get()) scripted = script->next(methodName, target);
    const bool bodyHeldBack = waitsForContinue(head.headers);
    guarded([&] { route(std::move(head)); });
    if (refusal && scripted && scripted->kind == Fault::Kind::refuse)
        refusal->status = static_cast<unsigned>(scripted->number);
    if (!refusal) return Body::wanted;
    // Where the end of the body is in doubt there is nothing to wait for.
    if (bodyHeldBack || !request) return Body::ignored;
    const bool mayBeLong = request->isChunked() || request->contentLength().value_or(0) > dropLimit;
    return mayBeLong ? Body::endless : Body::refused;
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
        else if (taken->access == Access::form)
            form.append(data, size);
    });
    if (refusal) receivedBeforeRefusal = received;
    return true;
}

Reply Exchange::finish(Headers trailers)
{
    Reply reply;
    if (!refusal)
        guarded([&] {
            checkFields(trailers);
            call->trailers = std::move(trailers);
            if (taken->access == Access::form) beginSession(Parameters(form).text("session"));
            reply = taken->handle(*call);
            requireSession();
            endTransfer();
            if (!isHead() && (reply.file || reply.source)) beginTransfer(site.metrics.downloads);
        });
    if (refusal) reply = std::move(*refusal);
    const bool isLogin = taken != nullptr && taken->access == Access::token;
    if (isLogin && reply.status == 401) try {
            heldBack = site.failedLogins.add(client.address);
        } catch (const ServiceError& tooMany) {
            reply = errorReply(tooMany);
        }
    status = reply.status;
    source = reply.source;
    if (!isHead()) sent = reply.file ? reply.fileSize : reply.text.size();
    // Now rather than at the end: a client that leaves without its reply has still removed what it removed.
    if (taken != nullptr && call && !taken->event.empty())
        site.audit.add(taken->event, requestId(), *call, status);
    if (site.log.isOn()) reply.headers.emplace_back("X-Request-Id", requestId());
    return reply;
}

std::optional<std::size_t> Exchange::produce(char* data, std::size_t size)
{
    std::size_t count = 0;
    guarded([&] { count = source->read(data, size); });
    sent += count;
    return refusal ? std::nullopt : std::optional(count);
}

void Exchange::ended(bool complete)
{
    if (!begun) return;
    // Of a reply that was cut off nobody knows how much arrived.
    if (!complete && transfer) sent = 0;
    const auto line = logged(complete);
    site.metrics.ended(taken, status, line.took, received, sent);
    site.log.ended(line);
}

std::string Exchange::requestId() const
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "-%08x", number);
    return site.requestIds + text.data();
}

LoggedRequest Exchange::logged(bool complete) const
{
    return {site.log.isOn() ? requestId() : "",
            methodName,
            taken,
            target,
            call ? std::string_view(call->caller.user) : std::string_view(),
            status,
            received,
            sent,
            std::chrono::steady_clock::now() - started,
            complete};
}

std::chrono::milliseconds Exchange::delay() const
{
    return heldBack ? FailedLogins::delay : std::chrono::milliseconds(0);
}

} // namespace tarnd
