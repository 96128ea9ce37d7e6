// The WinTrust verifier over the signing material made at test time (the
// folder KESTREL_TRUST_MATERIAL). Wine trusts any root, so nothing here
// depends on whether the material's root is trusted.
#include "platform/SignatureVerification.h"
#include "platform/common/Hex.h"
#include "support/ProcessRunner.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <wincrypt.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

using namespace Tessel::Bridge::Platform;
using KestrelTest::ProcessResult;

namespace {

std::wstring Material(const wchar_t* file)
{
    const wchar_t* folder = _wgetenv(L"KESTREL_TRUST_MATERIAL");
    if (folder == nullptr) throw std::runtime_error("KESTREL_TRUST_MATERIAL is not set");
    return std::wstring(folder) + L"\\" + file;
}

// The key bytes of the leaf certificate as crypt32 reads the PEM file.
std::vector<std::uint8_t> LeafKey()
{
    std::ifstream in(std::filesystem::path(Material(L"leaf.crt")), std::ios::binary);
    const std::string pem{std::istreambuf_iterator<char>(in), {}};
    DWORD size = 0;
    CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr, nullptr);
    std::vector<BYTE> der(size);
    if (!CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr, nullptr)) return {};
    const std::unique_ptr<const CERT_CONTEXT, decltype(&CertFreeCertificateContext)> leaf(
        CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), size), &CertFreeCertificateContext);
    if (leaf == nullptr) return {};
    const CRYPT_BIT_BLOB& key = leaf->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    return {key.pbData, key.pbData + key.cbData};
}

class SignatureVerificationWine : public ::testing::Test {
protected:
    std::unique_ptr<ISignatureVerifier> verifier = CreateSignatureVerifier();
};

TEST_F(SignatureVerificationWine, UnsignedAndChangedFilesGiveNoSigner)
{
    const SignatureCheck none = verifier->VerifyEmbedded(Material(L"unsigned.exe"), 0);
    EXPECT_EQ(none.result, TrustResult::kNoSignature);
    EXPECT_FALSE(none.signer);
    const SignatureCheck changed = verifier->VerifyEmbedded(Material(L"tampered.exe"), 0);
    EXPECT_EQ(changed.result, TrustResult::kBadDigest);
    EXPECT_FALSE(changed.signer);
}

TEST_F(SignatureVerificationWine, ASignedFileGivesItsLeafsSubjectAndKey)
{
    const SignatureCheck check = verifier->VerifyEmbedded(Material(L"signed.exe"), 0);
    EXPECT_TRUE(TrustResult::GivesSigner(check.result)) << std::hex << check.result;
    EXPECT_EQ(check.secondarySignatures, 0u);
    ASSERT_TRUE(check.signer);
    EXPECT_EQ(check.signer->subject, L"C=US\r\nS=Washington\r\nL=Redmond\r\nO=Kestrel Test\r\nOU=Release\r\nCN=Kestrel Test leaf");
    const std::vector<std::uint8_t> key = LeafKey();
    ASSERT_FALSE(key.empty());
    EXPECT_EQ(check.signer->publicKey, key);
}

TEST_F(SignatureVerificationWine, ANestedSignatureIsCountedAndVerifiedByIndex)
{
    for (const std::uint32_t index : {0u, 1u}) {
        const SignatureCheck check = verifier->VerifyEmbedded(Material(L"nested.exe"), index);
        EXPECT_TRUE(TrustResult::GivesSigner(check.result)) << index << ": " << std::hex << check.result;
        EXPECT_EQ(check.secondarySignatures, 1u) << index;
        EXPECT_TRUE(check.signer) << index;
    }
}

// WinVerifyTrust holds the file open until its state is closed.
TEST_F(SignatureVerificationWine, AVerifiedFileIsNotLeftOpen)
{
    wchar_t folder[MAX_PATH] = {};
    ASSERT_NE(GetTempPathW(MAX_PATH, folder), 0u);
    const std::wstring copy = std::wstring(folder) + L"kestrel-verified.exe";
    ASSERT_TRUE(CopyFileW(Material(L"signed.exe").c_str(), copy.c_str(), FALSE)) << GetLastError();
    EXPECT_TRUE(verifier->VerifyEmbedded(copy, 0).signer);
    EXPECT_TRUE(DeleteFileW(copy.c_str())) << GetLastError();
}

TEST_F(SignatureVerificationWine, AFileNoCatalogListsHasNoCatalog)
{
    CatalogLookupFailure failure;
    EXPECT_FALSE(verifier->FindCatalog(Material(L"signed.exe"), failure));
    EXPECT_NE(failure.error, 0u);
}

} // namespace
