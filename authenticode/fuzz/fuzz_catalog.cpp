// Security catalogs: any bytes are refused or read into a consistent catalog.
#include "FuzzSupport.h"

#include "SecurityCatalog.h"

#include <algorithm>
#include <cstdint>
#include <span>

using KestrelFuzz::Require;
namespace Catalog = Kestrel::Authenticode::Catalog;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // libFuzzer hands over a heap copy of exactly `size` bytes, so a read past the end is caught.
    const std::span<const std::uint8_t> bytes(data, size);

    const auto catalog = Catalog::ReadCatalog(bytes);
    if (!catalog) return 0;
    const auto& tags = catalog->memberTags;
    Require(std::adjacent_find(tags.begin(), tags.end(), std::greater_equal<>()) == tags.end(), "tags sorted, each once");
    for (const std::wstring& tag : tags) {
        Require(!tag.empty() && tag.find(L'\0') == std::wstring::npos, "a tag is text without zeros");
        Require(std::none_of(tag.begin(), tag.end(), [](wchar_t ch) { return ch >= L'a' && ch <= L'z'; }), "upper case");
        Require(Catalog::Lists(*catalog, tag), "the catalog lists its tags");
    }
    const auto& content = catalog->signedContent;
    Require(!content.empty() && std::search(bytes.begin(), bytes.end(), content.begin(), content.end()) != bytes.end(),
            "the signed content is bytes of the file");

    // OpenSSL's DER of what it read is the same catalog.
    unsigned char* der = nullptr;
    const int length = i2d_PKCS7(catalog->signedData.get(), &der);
    Require(length > 0, "a catalog read re-encodes");
    const auto again = Catalog::ReadCatalog(std::span<const std::uint8_t>(der, static_cast<std::size_t>(length)));
    OPENSSL_free(der);
    Require(again && again->memberTags == tags && again->signedContent == content, "the re-encoded catalog reads the same");
    return 0;
}
