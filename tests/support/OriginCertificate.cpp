#include <memory>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "OriginCertificate.h"

namespace origin {
namespace {

constexpr long kValidSeconds = 7L * 24 * 3600;
constexpr long kClockToleranceSeconds = 24L * 3600;

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

void Require(bool isTrue) {
  if (!isTrue) {
    throw std::runtime_error("the origin's certificate cannot be made");
  }
}

Key MakeKey() {
  Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  Require(key != nullptr);
  return key;
}

void AddNames(X509* certificate) {
  X509_NAME* const name = X509_get_subject_name(certificate);
  const auto* const text = reinterpret_cast<const unsigned char*>("localhost");
  Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) == 1);
  Require(X509_set_issuer_name(certificate, name) == 1);
  X509_EXTENSION* const extension =
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
  Require(extension != nullptr);
  const int isAdded = X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
  Require(isAdded == 1);
}

Certificate MakeCertificate(EVP_PKEY* key) {
  Certificate certificate(X509_new(), X509_free);
  Require(certificate != nullptr);
  X509* const raw = certificate.get();
  Require(X509_set_version(raw, 2) == 1);  // 2 says version 3, the one with extensions
  Require(ASN1_INTEGER_set(X509_get_serialNumber(raw), 1) == 1);
  Require(X509_gmtime_adj(X509_getm_notBefore(raw), -kClockToleranceSeconds) != nullptr);
  Require(X509_gmtime_adj(X509_getm_notAfter(raw), kValidSeconds) != nullptr);
  Require(X509_set_pubkey(raw, key) == 1);
  AddNames(raw);
  Require(X509_sign(raw, key, EVP_sha256()) > 0);
  return certificate;
}

}  // namespace

std::unique_ptr<boost::asio::ssl::context> MakeTlsContext() {
  const Key key = MakeKey();
  const Certificate certificate = MakeCertificate(key.get());
  auto context = std::make_unique<boost::asio::ssl::context>(boost::asio::ssl::context::tls_server);
  Require(SSL_CTX_use_certificate(context->native_handle(), certificate.get()) == 1);
  Require(SSL_CTX_use_PrivateKey(context->native_handle(), key.get()) == 1);
  return context;
}

}  // namespace origin
