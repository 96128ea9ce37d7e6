// The pinned key lists as built at start-up from the data file. Each key is
// compared as text with what the facade writes for a signer: lower-case hex
// bytes, one space apart (that each decodes as RSA is PinnedKeysDerTest's).
#include "security/trust/PinnedKeys.h"

#include <algorithm>
#include <set>
#include <string_view>

#include <gtest/gtest.h>

using Tessel::Bridge::Security::PublicKeyList;
using namespace Tessel::Bridge::Security::PinnedKeys;

namespace {

bool InTextForm(std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i % 3 == 2 ? c != ' ' : !((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    return text.size() == 809 || text.size() == 1193;
}

bool Holds(const PublicKeyList& list, const std::string& key)
{
    return std::find(list.begin(), list.end(), key) != list.end();
}

} // namespace

TEST(PinnedKeysTest, EveryListWholeInTheTextFormAndBuiltFromTheMasterAndSmallLists)
{
    std::set<std::string> distinct;
    std::vector<std::size_t> sizes;
    for (const auto* list : {&kMasterList, &kSingleKeyList, &kFourKeyList, &kFileTrustListA, &kFileTrustListB, &kShortList}) {
        for (const std::string& key : *list) EXPECT_TRUE(InTextForm(key)) << key;
        distinct.insert(list->begin(), list->end());
        sizes.push_back(list->size());
    }
    EXPECT_EQ((std::vector<std::size_t>{48, 1, 4, 48, 37, 7}), sizes);
    EXPECT_EQ(distinct.size(), 52u);
    for (const std::string& key : kShortList) EXPECT_TRUE(Holds(kMasterList, key)) << key;
    for (const auto* list : {&kFileTrustListA, &kFileTrustListB}) {
        EXPECT_TRUE(Holds(*list, kSingleKeyList.at(0)));
        for (const std::string& key : kFourKeyList) EXPECT_TRUE(Holds(*list, key));
    }
}
