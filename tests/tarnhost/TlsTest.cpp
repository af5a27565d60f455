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

/// Writes a fresh key to `keyFile` and a self-signed certificate for the IP address to `certificateFile`.
void writeCertificate(const std::string& address, const std::string& keyFile,
                      const std::string& certificateFile)
{
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("test"), -1,
                               -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    X509_EXTENSION* names =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, ("IP:" + address).c_str());
    X509_add_ext(certificate.get(), names, -1);
    X509_EXTENSION_free(names);
    X509_sign(certificate.get(), key.get(), EVP_sha256());

    using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;
    PEM_write_PrivateKey(File(std::fopen(keyFile.c_str(), "w"), &std::fclose).get(), key.get(), nullptr,
                         nullptr, 0, nullptr, nullptr);
    PEM_write_X509(File(std::fopen(certificateFile.c_str(), "w"), &std::fclose).get(), certificate.get());
}

class Tls : public testing::Test {
protected:
    Tls()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "tarn-tls-XXXXXX").string();
        folder = ::mkdtemp(pattern.data());
    }

    ~Tls() override { std::filesystem::remove_all(folder); }

    /// What a ping to a service with a certificate for `address` ends in.
    std::string pingServiceNamed(const std::string& address, bool trusted)
    {
        writeCertificate(address, folder / "key.pem", folder / "certificate.pem");
        tarnd::test::TarndProcess service(
            {"--tls-cert", folder / "certificate.pem", "--tls-key", folder / "key.pem"});
        service.start();
        TarnHost::Options options{.endpoint = service.url()};
        if (trusted) options.http.caFile = folder / "certificate.pem";
        TarnHost host(options);
        return failureOf<std::runtime_error>(host.session()->ping(nullptr));
    }

    std::filesystem::path folder;
};

TEST_F(Tls, VerifiesTrustAndName)
{
    EXPECT_EQ(pingServiceNamed("127.0.0.1", true), "Your session has ended. Log in again.");
    EXPECT_THAT(pingServiceNamed("127.0.0.1", false), HasSubstr("self-signed certificate"));
    EXPECT_THAT(pingServiceNamed("127.0.0.9", true),
                HasSubstr("no alternative certificate subject name matches"));
}

} // namespace
} // namespace connector::host::test
