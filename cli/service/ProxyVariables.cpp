#include "cli/service/ProxyVariables.h"

#include "cli/machine/Environment.h"
#include "cli/service/Endpoint.h"

#include <initializer_list>
#include <sstream>

namespace tarncli {

namespace {

std::string firstSet(std::initializer_list<const char*> variables)
{
    for (const char* variable : variables)
        if (auto value = environmentVariable(variable); !value.empty()) return value;
    return {};
}

bool isIn(const std::string& host, std::string domain)
{
    const auto begin = domain.find_first_not_of(" ."); // ".example.org" means the same as "example.org"
    if (begin == std::string::npos) return false;
    domain = domain.substr(begin, domain.find_last_not_of(' ') + 1 - begin);
    return domain == "*" || host == domain || host.ends_with("." + domain);
}

bool isExempt(const std::string& host)
{
    std::istringstream domains(firstSet({"no_proxy", "NO_PROXY"}));
    for (std::string domain; std::getline(domains, domain, ',');)
        if (isIn(host, domain)) return true;
    return false;
}

} // namespace

std::string proxyOfEnvironment(const std::string& endpoint)
{
    if (isLoopback(endpoint) || isExempt(hostOf(endpoint))) return {};
    // HTTP_PROXY is left out: in a CGI program it is a header that whoever sends the request chooses.
    const auto ofScheme =
        endpoint.starts_with("https:") ? firstSet({"https_proxy", "HTTPS_PROXY"}) : firstSet({"http_proxy"});
    return ofScheme.empty() ? firstSet({"all_proxy", "ALL_PROXY"}) : ofScheme;
}

} // namespace tarncli
