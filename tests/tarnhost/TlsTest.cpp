// A session id goes to a service whose certificate is trusted and names it, and to no other.
#include "Bounded.h"
#include "support/TarndProcess.h"

#include "tarn/session/SessionMessages.h"
#include "tarnhost/TarnHost.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace connector::host::test {
namespace {

using testing::HasSubstr;

/// A fresh key, and a certificate for it signed by `authority`, or by itself.
struct Party {
    explicit Party(const char* name, const Party* authority = nullptr, const char* address = "127.0.0.1",
                   long validSeconds = 3600)
        : key(EVP_EC_gen("P-256"), &EVP_PKEY_free), certificate(X509_new(), &X509_free)
    {
        const Party& issuer = authority ? *authority : *this;
        X509_set_version(certificate.get(), X509_VERSION_3);
        ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), authority ? 2 : 1);
        X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -7200);
        X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validSeconds);
        X509_set_pubkey(certificate.get(), key.get());
        X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
        X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer.certificate.get()));
        extend(NID_subject_alt_name, std::string("IP:") + address);
        if (!authority) extend(NID_basic_constraints, "critical,CA:TRUE");
        X509_sign(certificate.get(), issuer.key.get(), EVP_sha256());
    }

    void extend(int kind, const std::string& value)
    {
        X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
        X509_add_ext(certificate.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }

    /// "NAME.key" and "NAME.pem" for `path`/NAME.
    void write(const std::filesystem::path& path) const
    {
        using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;
        PEM_write_PrivateKey(File(std::fopen((path.string() + ".key").c_str(), "w"), &std::fclose).get(),
                             key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        PEM_write_X509(File(std::fopen((path.string() + ".pem").c_str(), "w"), &std::fclose).get(),
                       certificate.get());
    }

    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key;
    std::unique_ptr<X509, decltype(&X509_free)> certificate;
};

struct TlsCase {
    const char* name;
    Party service;
    const Party* trusted; ///< null: the system's authorities
    const char* outcome;  ///< of a ping without a session
};

TEST(Tls, TrustsTheRightCertificateAndNoOther)
{
    const Party authority("authority");
    const Party stranger("stranger");
    const TlsCase rows[] = {
        {"private authority", Party("a", &authority), &authority, "Your session has ended. Log in again."},
        {"wrong host", Party("b", &authority, "127.0.0.9"), &authority,
         "no alternative certificate subject name"},
        {"expired", Party("c", &authority, "127.0.0.1", -3600), &authority, "certificate has expired"},
        {"self-signed", Party("d"), nullptr, "self-signed certificate"},
        {"unknown authority", Party("e", &authority), &stranger, "unable to get local issuer certificate"},
    };
    std::string pattern = (std::filesystem::temp_directory_path() / "tarn-tls-XXXXXX").string();
    const std::filesystem::path folder = ::mkdtemp(pattern.data());
    for (const TlsCase& row : rows) {
        SCOPED_TRACE(row.name);
        row.service.write(folder / "service");
        tarnd::test::TarndProcess service(
            {"--tls-cert", folder / "service.pem", "--tls-key", folder / "service.key"});
        service.start();
        TarnHost::Options options{.endpoint = service.url()};
        if (row.trusted) row.trusted->write(folder / "trusted");
        if (row.trusted) options.http.caFile = folder / "trusted.pem";
        TarnHost host(options);
        EXPECT_THAT(failureOf<std::runtime_error>(host.session()->ping(nullptr)), HasSubstr(row.outcome));
    }
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace connector::host::test
