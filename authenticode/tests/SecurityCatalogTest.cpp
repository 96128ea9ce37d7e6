// Security catalogs read back from catalogs signed here.
#include "SecurityCatalog.h"
#include "support/CatalogBuilder.h"
#include "support/TrustMaterial.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Catalog = Kestrel::Authenticode::Catalog;

namespace {

const std::wstring kFirst = L"68E61E7C9285241637BBE7215751B4C8FFC75564B10207102DE2A52659D4C8E0";
const std::wstring kSecond = L"7DBF3549C424AF952F4EE0EC807377AC7DBF2F72B46D52ED5A16B5FCAFB482C3";
const std::wstring kLower = L"c0ffee00c0ffee00c0ffee00c0ffee00c0ffee00c0ffee00c0ffee00c0ffee00";
const std::wstring kLowerAsUpper = L"C0FFEE00C0FFEE00C0FFEE00C0FFEE00C0FFEE00C0FFEE00C0FFEE00C0FFEE00";

std::vector<std::uint8_t> Signed(const std::vector<std::uint8_t>& list, const char* type = Catalog::kCtlOid)
{
    static const KestrelTest::CatalogSigner signer =
        KestrelTest::SignerFromPem(KestrelTest::TrustMaterial() / "leaf.crt", KestrelTest::TrustMaterial() / "leaf.key");
    return KestrelTest::SignedDataDer(type, list, signer);
}

// The list with one byte, `shift` from where `marker` starts, changed.
std::vector<std::uint8_t> Patched(std::vector<std::uint8_t> list, const std::vector<std::uint8_t>& marker, long shift, std::uint8_t from, std::uint8_t to)
{
    const auto at = std::search(list.begin(), list.end(), marker.begin(), marker.end()) + shift;
    EXPECT_EQ(*at, from);
    *at = to;
    return list;
}

} // namespace

TEST(SecurityCatalog, ListsItsMembersByUpperCaseTag)
{
    // Members named by text (CATALOG_LIST_MEMBER) or by the hash's bytes (CATALOG_LIST_MEMBER2).
    for (const auto format : {KestrelTest::MemberFormat::kText, KestrelTest::MemberFormat::kBinary}) {
        const auto catalog = Catalog::ReadCatalog(Signed(KestrelTest::CatalogListDer({kSecond, kLower, kFirst, kFirst}, format)));
        ASSERT_TRUE(catalog);
        EXPECT_EQ(catalog->memberTags, (std::vector<std::wstring>{kFirst, kSecond, kLowerAsUpper}));
        EXPECT_TRUE(Catalog::Lists(*catalog, kFirst));
        EXPECT_TRUE(Catalog::Lists(*catalog, kLowerAsUpper));
        EXPECT_TRUE(Catalog::Lists(*catalog, kLower));
        EXPECT_FALSE(Catalog::Lists(*catalog, kFirst.substr(0, 63)));
        EXPECT_FALSE(Catalog::Lists(*catalog, L""));
    }
}

TEST(SecurityCatalog, GivesTheSignedBytesOfOneWholeCatalogAndRefusesTheRest)
{
    const std::vector<std::uint8_t> list = KestrelTest::CatalogListDer({kFirst, kSecond});
    std::vector<std::uint8_t> file = Signed(list);
    const auto catalog = Catalog::ReadCatalog(file);
    ASSERT_TRUE(catalog);
    // What the message digest covers: the list after its tag and length (30 82 LL LL).
    EXPECT_EQ(catalog->signedContent, std::vector<std::uint8_t>(list.begin() + 4, list.end()));
    EXPECT_FALSE(Catalog::ReadCatalog({}));
    EXPECT_FALSE(Catalog::ReadCatalog(std::span(file).first(file.size() - 1)));
    EXPECT_FALSE(Catalog::ReadCatalog(std::span(file).first(file.size() / 2)));
    file.push_back(0);
    EXPECT_FALSE(Catalog::ReadCatalog(file));
    EXPECT_FALSE(Catalog::ReadCatalog(Signed(list, "1.2.840.113549.1.7.1")));  // Data
    EXPECT_FALSE(Catalog::ReadCatalog(Signed(list, "1.3.6.1.4.1.311.2.1.4"))); // SPC_INDIRECT_DATA
    // The first identifier as a BMPString: its tag byte comes before 81 82 and "6" "8" in UTF-16LE.
    EXPECT_FALSE(Catalog::ReadCatalog(Signed(Patched(list, {'6', 0, '8', 0, 'E', 0}, -3, 0x04, 0x1E))));
    // Another use than szOID_CATALOG_LIST: ...311.12.1.1 made ...311.12.1.9.
    EXPECT_FALSE(Catalog::ReadCatalog(Signed(Patched(list, {0x82, 0x37, 0x0C, 0x01, 0x01}, 4, 0x01, 0x09))));
}
