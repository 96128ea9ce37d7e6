// Every pinned key is a real RSA public key of the size its text says, written
// as the facade writes a signer's key, so that a comparison can match it.
#include "security/trust/CertificateDetails.h"
#include "security/trust/PinnedKeys.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/evp.h>

using namespace Tessel::Bridge::Security;
using namespace Tessel::Bridge::Security::PinnedKeys;

TEST(PinnedKeysDerTest, EveryKeyDecodesAsRsaOfItsSizeInTheFacadesTextForm)
{
    for (const auto* list : {&kMasterList, &kSingleKeyList, &kFourKeyList, &kFileTrustListA, &kFileTrustListB, &kShortList}) {
        EXPECT_FALSE(list->empty());
        for (const std::string& text : *list) {
            std::vector<std::uint8_t> der;
            for (std::size_t i = 0; i + 1 < text.size(); i += 3)
                der.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
            EXPECT_EQ(PublicKeyText(der), text);
            const unsigned char* next = der.data();
            const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
                d2i_PublicKey(EVP_PKEY_RSA, nullptr, &next, static_cast<long>(der.size())), EVP_PKEY_free);
            ASSERT_NE(nullptr, key) << text;
            EXPECT_EQ(der.data() + der.size(), next) << "bytes after the key: " << text;
            EXPECT_EQ(text.size() == 809 ? 2048 : 3072, EVP_PKEY_get_bits(key.get())) << text;
        }
    }
}
