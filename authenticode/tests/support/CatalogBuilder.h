#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace KestrelTest {

struct X509Free {
    void operator()(X509* p) const noexcept { X509_free(p); }
};
using OwnedX509 = std::unique_ptr<X509, X509Free>;

struct KeyFree {
    void operator()(EVP_PKEY* p) const noexcept { EVP_PKEY_free(p); }
};
using OwnedKey = std::unique_ptr<EVP_PKEY, KeyFree>;

// Who signs a catalog: certificate and key, and the certificates sent along.
struct CatalogSigner {
    OwnedX509 certificate;
    OwnedKey key;
    std::vector<OwnedX509> chain;
};

// A signer from PEM files; chainPem may hold several certificates, or be empty.
CatalogSigner SignerFromPem(const std::filesystem::path& certificatePem, const std::filesystem::path& keyPem,
                            const std::filesystem::path& chainPem = {});

// How a catalog names its members: UTF-16LE text with its terminating zero
// (CATALOG_LIST_MEMBER), or the hash's bytes (CATALOG_LIST_MEMBER2).
enum class MemberFormat { kText, kBinary };

// The DER of a catalog's CTL listing the tags (hexadecimal hashes).
std::vector<std::uint8_t> CatalogListDer(const std::vector<std::wstring>& tags, MemberFormat format = MemberFormat::kText);

// A DER SignedData over the content: contentType is a dotted OID; contentDer
// is the content's DER, or for Data (1.2.840.113549.1.7.1) the bytes
// themselves. Signed attributes: contentType and messageDigest (SHA-256).
std::vector<std::uint8_t> SignedDataDer(const char* contentType, std::span<const std::uint8_t> contentDer,
                                        const CatalogSigner& signer);

// A signed catalog listing the tags, written to path.
void WriteCatalog(const std::filesystem::path& path, const std::vector<std::wstring>& tags,
                  const CatalogSigner& signer, MemberFormat format = MemberFormat::kText);

} // namespace KestrelTest
