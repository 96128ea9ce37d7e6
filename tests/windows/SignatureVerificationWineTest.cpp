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

// KestrelVerify.exe over WinTrust: the same lines as on the emulated PC.
TEST_F(SignatureVerificationWine, KestrelVerifyPrintsWinTrustsAnswers)
{
    const std::vector<std::uint8_t> abc{'a', 'b', 'c'};
    ASSERT_EQ(HexDigits<char>(Sha256Of(abc), false), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");

    const auto utf8 = [](const std::wstring& text) { return std::string(text.begin(), text.end()); };
    const std::string unsignedFile = utf8(Material(L"unsigned.exe"));
    const std::string signedFile = utf8(Material(L"signed.exe"));
    const ProcessResult result = KestrelTest::RunProcess(KestrelTest::BuiltProgram("KestrelVerify"), {signedFile, unsignedFile});
    const std::string fingerprint = HexDigits<char>(Sha256Of(LeafKey()), false);
    const std::string end(KestrelTest::kLineEnd);
    EXPECT_EQ(result.out, signedFile + ": trusted by Windows" + end + "  embedded 0: 0x00000000 key=" + fingerprint +
                              " subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf" + end + unsignedFile + ": not trusted by Windows" + end +
                              "  embedded 0: 0x800B0100" + end);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(KestrelTest::RunProcess(KestrelTest::BuiltProgram("KestrelVerify"), {"--roots", "root.crt", signedFile}).exitStatus, 2);
}

} // namespace
